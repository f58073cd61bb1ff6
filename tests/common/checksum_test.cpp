#include <gtest/gtest.h>
#include <vyn/helper.h>

#include <cstdint>
#include <vector>

#include "common/checksum.h"

namespace vyn::helper {
namespace {

// The same checksum one bit at a time, without a table.
uint32_t bitByBit(const uint8_t* data, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    const auto add = [&crc](uint32_t byte) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        }
    };
    for (size_t i = 0; i < size; ++i) add(data[i]);
    for (size_t rest = size; rest != 0; rest >>= 8) add(rest & 0xFF);
    return crc;
}

std::vector<uint8_t> scrambledBytes(size_t size) {
    std::vector<uint8_t> bytes(size);
    uint32_t state = 12345;
    for (uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

TEST(Crc32, OfNothingIsTheRegistersStart) {
    EXPECT_EQ(crc32(nullptr, 0), 0xFFFFFFFF);
    EXPECT_EQ(crc32("x", -5), 0xFFFFFFFF);
}

// The published check value of CRC-32 over "123456789" is 0xCBF43926, inverted 0x340BC6D9; the
// length byte 9 then moves the register on.
TEST(Crc32, ContinuesTheStandardValueOverTheLengthWithoutInvertingIt) {
    const uint32_t standard = ~0xCBF43926u;
    uint32_t expected = (standard & 0xFF) ^ 9;
    for (int bit = 0; bit < 8; ++bit) {
        expected = (expected & 1) != 0 ? (expected >> 1) ^ 0xEDB88320u : expected >> 1;
    }
    EXPECT_EQ(crc32("123456789", 9), expected ^ (standard >> 8));
}

TEST(Crc32, EqualsABitByBitComputationAtEveryLength) {
    const std::vector<uint8_t> bytes = scrambledBytes(70001);
    std::vector<size_t> sizes = {255, 256, 65535, 65536};
    for (size_t size = 0; size <= 70000; size += 997) sizes.push_back(size);
    for (size_t size = 0; size <= 70; ++size) sizes.push_back(size);
    for (const size_t size : sizes) {
        const uint8_t* unaligned = bytes.data() + 1;
        ASSERT_EQ(crc32(unaligned, static_cast<int>(size)), bitByBit(unaligned, size)) << size;
    }
}

// Which of the two the public call takes depends on the processor.
TEST(Crc32, NeedsNoHelpOfTheProcessor) {
    const std::vector<uint8_t> bytes = scrambledBytes(5000);
    for (size_t size = 0; size < bytes.size(); size += size < 300 ? 1 : 97) {
        const uint8_t* unaligned = bytes.data() + bytes.size() - size;
        const uint32_t expected = checksum::add(0x12345678, unaligned, size);
        ASSERT_EQ(checksum::addByTables(0x12345678, unaligned, size), expected) << size;
    }
}

std::string md5Of(const std::string& text) {
    return md5sum(text.data(), static_cast<int>(text.size()));
}

TEST(Md5, GivesTheDigestsOfRfc1321) {
    EXPECT_EQ(md5sum(nullptr, 0), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(md5Of("a"), "0CC175B9C0F1B6A831C399E269772661");
    EXPECT_EQ(md5Of("abc"), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(md5Of("message digest"), "F96B697D7CB7938D525A2F31AAF161D0");
    EXPECT_EQ(md5Of("abcdefghijklmnopqrstuvwxyz"), "C3FCD3D76192E4007DFB496CCA67E13B");
    EXPECT_EQ(md5Of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "D174AB98D277D9F5A5611C2C9F419D9F");
    EXPECT_EQ(md5Of("1234567890123456789012345678901234567890"
                    "1234567890123456789012345678901234567890"),
              "57EDF4A22BE3C955AC49DA2E2107B67A");
}

// The digest of the digests of every length around the block's padding limits; computed with
// another implementation.
TEST(Md5, PadsEveryLengthAroundABlock) {
    std::string digests;
    for (size_t size = 0; size <= 200; ++size) digests += md5Of(std::string(size, 'x'));
    EXPECT_EQ(md5Of(digests), "8AE09F497C75770BAAF4597F52858CDD");
}

TEST(Md5, CountsANegativeLengthAsZero) {
    EXPECT_EQ(md5sum("abc", -1), "D41D8CD98F00B204E9800998ECF8427E");
}

}  // namespace
}  // namespace vyn::helper
