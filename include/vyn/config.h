#pragma once

#include <vyn/export.h>

// Process-wide switches. Any thread may read and set them; a change becomes visible to other
// threads soon, without ordering anything else.
namespace vyn::config {

// Whether workers queue what they write and send it when the peer takes it (true), or write at
// once (false). Off at first.
[[nodiscard]] VYN_API bool isAsyncWritting();
VYN_API void setAsyncWritting(bool on);

namespace debug {

// Whether a Buffer is printed whole; otherwise only its first 16 bytes are. Off at first.
[[nodiscard]] VYN_API bool DEBUG_BUF();
VYN_API void setDEBUG_BUF(bool on);

// Whether thread pools watch for tasks that run too long. Off at first.
[[nodiscard]] VYN_API bool DEBUG_THREAD_POOL_CHECK();
VYN_API void setDEBUG_THREAD_POOL_CHECK(bool on);

}  // namespace debug

}  // namespace vyn::config
