#include <gtest/gtest.h>
#include <vyn/helper.h>

#include <vector>

#include "common/checksum.h"

namespace vyn::helper {
namespace {

// The same checksum one bit at a time, without a table.
uint32_t bitByBit(uint32_t crc, const uint8_t* data, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) * 0xEDB88320u);
    }
    return crc;
}

// Which of the two ways the public call takes depends on the processor.
TEST(Crc32, EqualsABitByBitComputationAtEveryLengthWithAndWithoutTheProcessorsHelp) {
    std::vector<uint8_t> bytes(66000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * i * 7 >> 5);
    for (size_t size = 0; size < 66000; size += size < 300 ? 1 : 997) {
        const uint8_t* unaligned = bytes.data() + 65999 - size;
        uint32_t expected = bitByBit(0xFFFFFFFF, unaligned, size);
        ASSERT_EQ(checksum::addByTables(0xFFFFFFFF, unaligned, size), expected) << size;
        for (size_t rest = size; rest != 0; rest >>= 8) {
            const auto byte = static_cast<uint8_t>(rest);
            expected = bitByBit(expected, &byte, 1);
        }
        ASSERT_EQ(crc32(unaligned, static_cast<int>(size)), expected) << size;
    }
}

// The published check value over "123456789" is 0xCBF43926, inverted 0x340BC6D9; the length byte 9
// then moves the register on.
TEST(Crc32, ContinuesTheStandardValueOverTheLengthWithoutInvertingIt) {
    const uint8_t length = 9;
    EXPECT_EQ(crc32("123456789", 9), bitByBit(0x340BC6D9, &length, 1));
    EXPECT_EQ(crc32("x", -5), 0xFFFFFFFF);
}

// The last digest is the one of the digests of every length around the block's padding limits;
// computed with another implementation.
TEST(Md5, GivesTheDigestsOfRfc1321AndPadsEveryLengthAroundABlock) {
    const auto md5Of = [](const std::string& text) {
        return md5sum(text.data(), static_cast<int>(text.size()));
    };
    EXPECT_EQ(md5sum("abc", -1), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(md5Of("message digest"), "F96B697D7CB7938D525A2F31AAF161D0");
    std::string digests;
    for (size_t size = 0; size <= 200; ++size) digests += md5Of(std::string(size, 'x'));
    EXPECT_EQ(md5Of(digests), "8AE09F497C75770BAAF4597F52858CDD");
}

}  // namespace
}  // namespace vyn::helper
