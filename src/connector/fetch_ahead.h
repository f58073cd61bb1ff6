// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

namespace vyn {

// Has the processor bring memory into its cache, for a look at it that comes soon. Harmless for
// null, and for what is gone.
inline void fetchAhead(const void* memory, size_t bytes) {
    constexpr size_t kCacheLine = 64;
    const char* const first = static_cast<const char*>(memory);
    for (size_t at = 0; at < bytes; at += kCacheLine) __builtin_prefetch(first + at);
}

}  // namespace vyn
