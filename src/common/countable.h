// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <climits>
#include <cstddef>
#include <new>

namespace vyn {

// The number as a buffer's size, which is an int: what that cannot count, cannot be allocated
// either.
inline int countable(size_t count) {
    if (count > INT_MAX) throw std::bad_alloc();
    return static_cast<int>(count);
}

}  // namespace vyn
