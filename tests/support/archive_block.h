#pragma once

#include <cstddef>
#include <cstdint>

namespace vyn::testing {

// How many bytes of a block the records take that are to be read from it.
inline size_t readableBytes(const char* block, size_t size) {
    size_t done = 0;
    while (size - done > 4) {
        uint32_t length = 0;
        for (size_t i = 0; i < 4; ++i) {
            length |= uint32_t{static_cast<unsigned char>(block[done + i])} << (8 * i);
        }
        if (length > size - done - 4) break;
        done += 4 + length;
    }
    return done;
}

}  // namespace vyn::testing
