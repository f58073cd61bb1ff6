// SPDX-License-Identifier: Apache-2.0

#include <vyn/digest.h>
#include <vyn/helper.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/checksum.h"
#include "common/checksum_fold.h"
#include "common/little_endian.h"

namespace vyn::checksum {

namespace {

using Table = std::array<uint32_t, 256>;
using WordTables = std::array<Table, 4>;

constexpr Table makeByteTable() {
    Table table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) * kPolynomial);
        table[byte] = value;
    }
    return table;
}

constexpr Table kByteTable = makeByteTable();

constexpr uint32_t addByte(uint32_t crc, uint32_t byte) {
    return kByteTable[(crc ^ byte) & 0xFF] ^ (crc >> 8);
}

// tables[k][b] is what a byte b adds to the register when `following` and k more bytes come behind
// it.
constexpr WordTables makeWordTables(size_t following) {
    WordTables tables{};
    for (size_t k = 0; k < tables.size(); ++k) {
        for (uint32_t byte = 0; byte < 256; ++byte) {
            uint32_t value = kByteTable[byte];
            for (size_t i = 0; i < following + k; ++i) value = addByte(value, 0);
            tables[k][byte] = value;
        }
    }
    return tables;
}

constexpr size_t kWordSize = 4;
constexpr size_t kBraids = 4;
constexpr size_t kBlockSize = kBraids * kWordSize;

constexpr WordTables kNothingFollows = makeWordTables(0);
constexpr WordTables kRestOfBlockFollows = makeWordTables(kBlockSize - kWordSize);

uint32_t addWord(const WordTables& tables, uint32_t word) {
    return tables[3][word & 0xFF] ^ tables[2][(word >> 8) & 0xFF] ^ tables[1][(word >> 16) & 0xFF] ^
           tables[0][word >> 24];
}

// Every fourth word goes into a register of its own ("braiding", Kadatch and Jenkins 2010), so that
// the look-ups for one do not wait for another's. The last block joins the registers.
uint32_t addBlocks(uint32_t crc, const uint8_t* bytes, size_t blocks) {
    uint32_t braids[kBraids] = {crc};
    for (; blocks > 1; --blocks, bytes += kBlockSize) {
        for (size_t i = 0; i < kBraids; ++i) {
            const uint32_t word = little_endian::load(bytes + i * kWordSize);
            braids[i] = addWord(kRestOfBlockFollows, word ^ braids[i]);
        }
    }
    uint32_t joined = 0;
    for (size_t i = 0; i < kBraids; ++i) {
        const uint32_t word = little_endian::load(bytes + i * kWordSize);
        joined = addWord(kNothingFollows, word ^ braids[i] ^ joined);
    }
    return joined;
}

}  // namespace

uint32_t addByTables(uint32_t crc, const uint8_t* bytes, size_t size) {
    if (const size_t blocks = size / kBlockSize; blocks > 0) {
        crc = addBlocks(crc, bytes, blocks);
        bytes += blocks * kBlockSize;
        size %= kBlockSize;
    }
    for (; size > 0; --size) crc = addByte(crc, *bytes++);
    return crc;
}

uint32_t add(uint32_t crc, const uint8_t* bytes, size_t size) {
    uint8_t folded[kFoldedSize];
    const size_t taken = fold(crc, bytes, size, folded);
    if (taken > 0) crc = addByTables(0, folded, kFoldedSize);
    return addByTables(crc, bytes + taken, size - taken);
}

}  // namespace vyn::checksum

namespace vyn::helper {

void Crc32::add(const void* data, size_t size) {
    mRegister = checksum::add(mRegister, static_cast<const uint8_t*>(data), size);
    mSize += size;
}

uint32_t Crc32::value() const {
    uint32_t crc = mRegister;
    for (uint64_t rest = mSize; rest != 0; rest >>= 8) {
        crc = checksum::addByte(crc, static_cast<uint32_t>(rest & 0xFF));
    }
    return crc;
}

uint32_t crc32(const void* data, int len) {
    Crc32 crc;
    crc.add(data, static_cast<size_t>(std::max(len, 0)));
    return crc.value();
}

}  // namespace vyn::helper
