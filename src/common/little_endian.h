// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <cstring>

// 32-bit words in bytes, low byte first, at any address.
namespace vyn::little_endian {

// The same in the order of the host, and the other way round.
inline uint32_t swapOnBigEndian(uint32_t word) {
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? word : __builtin_bswap32(word);
}

inline uint32_t load(const void* from) {
    uint32_t word;
    std::memcpy(&word, from, sizeof word);
    return swapOnBigEndian(word);
}

inline void store(void* to, uint32_t word) {
    word = swapOnBigEndian(word);
    std::memcpy(to, &word, sizeof word);
}

}  // namespace vyn::little_endian
