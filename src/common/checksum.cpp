#include <vyn/helper.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/little_endian.h"

namespace vyn::helper {

namespace {

// Sixteen bytes a step ("slicing", Kounavis and Berry 2005): kTables[k][b] is what a byte b adds to
// the register when k further bytes follow it, so the look-ups of one step do not wait for each
// other.
constexpr size_t kSlices = 16;
using Tables = std::array<std::array<uint32_t, 256>, kSlices>;

constexpr Tables makeTables() {
    Tables tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) * 0xEDB88320u);
        tables[0][byte] = value;
    }
    for (size_t slice = 1; slice < kSlices; ++slice) {
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t value = tables[slice - 1][byte];
            tables[slice][byte] = tables[0][value & 0xFF] ^ (value >> 8);
        }
    }
    return tables;
}

constexpr Tables kTables = makeTables();

uint32_t addByte(uint32_t crc, uint32_t byte) {
    return kTables[0][(crc ^ byte) & 0xFF] ^ (crc >> 8);
}

// What a word adds when `following` further bytes of the step come behind it.
uint32_t sliceWord(uint32_t word, size_t following) {
    return kTables[following + 3][word & 0xFF] ^ kTables[following + 2][(word >> 8) & 0xFF] ^
           kTables[following + 1][(word >> 16) & 0xFF] ^ kTables[following][word >> 24];
}

uint32_t addStep(uint32_t crc, const uint8_t* bytes) {
    return sliceWord(little_endian::load(bytes) ^ crc, 12) ^
           sliceWord(little_endian::load(bytes + 4), 8) ^
           sliceWord(little_endian::load(bytes + 8), 4) ^
           sliceWord(little_endian::load(bytes + 12), 0);
}

}  // namespace

uint32_t crc32(const void* data, int len) {
    const size_t size = static_cast<size_t>(std::max(len, 0));
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    uint32_t crc = 0xFFFFFFFF;
    size_t done = 0;
    for (; size - done >= kSlices; done += kSlices) crc = addStep(crc, bytes + done);
    for (; done < size; ++done) crc = addByte(crc, bytes[done]);
    for (size_t rest = size; rest != 0; rest >>= 8) crc = addByte(crc, rest & 0xFF);
    return crc;
}

}  // namespace vyn::helper
