// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/logging.h>

#include <algorithm>
#include <vector>

// What is read of a block does not depend on what follows: `read` finds in the beginning of the
// block the beginning of what it finds in all of it. Each beginning is copied, so that the place
// where it ends is also where the memory does.
template <typename Read>
void checkCuts(Read read, const uint8_t* data, size_t size) {
    const auto whole = read(data, size);
    const size_t step = size / 16 + 1;
    for (size_t end = 0; end < size; end += step) {
        const std::vector<uint8_t> block(data, data + end);
        const auto found = read(block.data(), end);
        VYN_CHECK(found.size() <= whole.size());
        VYN_CHECK(std::equal(found.begin(), found.end(), whole.begin()));
    }
}
