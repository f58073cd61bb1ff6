// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

namespace vyn {

// Has the processor bring memory into its cache, for a look at it that comes soon. Harmless for
// null, and for what is gone.
inline void fetchAhead(const void* memory, size_t bytes) {
    constexpr size_t kCacheLine = 64;
    const auto first = reinterpret_cast<uintptr_t>(memory);  // a pointer may not go past its object
    for (size_t at = 0; at < bytes; at += kCacheLine) {
        __builtin_prefetch(reinterpret_cast<const void*>(first + at));
    }
}

}  // namespace vyn
