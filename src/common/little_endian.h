// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

// 32-bit words in bytes, low byte first, at any address. Compilers make one load or store of each.
namespace vyn::little_endian {

inline uint32_t load(const void* from) {
    const uint8_t* bytes = static_cast<const uint8_t*>(from);
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[3]) << 24;
}

inline void store(void* to, uint32_t word) {
    uint8_t* bytes = static_cast<uint8_t*>(to);
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(word >> (8 * i));
}

}  // namespace vyn::little_endian
