// SPDX-License-Identifier: Apache-2.0

#include <vyn/digest.h>
#include <vyn/helper.h>

#include <set>

#include "common/checksum.h"
#include "support/support.h"

namespace vyn::helper {
namespace {

using Pieces = testing::Strings;

TEST(HelperString, TrimsAndComparesTheEndsOnly) {
    EXPECT_EQ(trim("\t a b\r\n"), "a b");
    EXPECT_EQ(trim("xxaxx", "x"), "a");
    EXPECT_EQ(trim(" \n "), "");
    EXPECT_TRUE(startsWith("abc", "abc"));
    for (const char* prefix : {"abcd", "b", ""}) EXPECT_FALSE(startsWith("abc", prefix));
}

TEST(HelperString, SplitsAtEachDelimiterAndIntoAContainerWithoutAnEmptyLastPiece) {
    for (Pieces pieces : {Pieces{"a", "", "b"}, Pieces{"a", ""}, Pieces{"", ""}, Pieces{""}}) {
        const std::string text = implode(pieces, ",");
        EXPECT_EQ(split(text, ','), pieces);
        if (pieces.back().empty()) pieces.pop_back();
        std::list<std::string> list{"old"};
        Pieces vector{"old"};
        EXPECT_EQ(split(text, list, ',') + split(text, vector, ','),
                  static_cast<int>(2 * pieces.size()));
        EXPECT_EQ(l2v(list), pieces);
        EXPECT_EQ(v2l(vector), list);
    }
    Pieces own{"a long enough piece,and another one"};
    EXPECT_EQ(split(own[0], own, ','), 2);
    EXPECT_EQ(dumplist(v2l(own), '|') + dumplist({}, '|'),
              "|a long enough piece|and another one||");
}

TEST(Tick, FollowsItsClockAndTurnsNegativeBehindItsLargestValue) {
    const long monotonic = tick::toTick(ntick() / 1000000), before = mtick();
    const long wall = tick::toTick(int64_t{time(nullptr)} * 1000);
    for (const long passed : {tickDifference(before, monotonic), tickDifference(mtick(), before),
                              tickDifference(abstime(), wall)}) {
        EXPECT_TRUE(passed >= 0 && passed < 30000) << passed;
    }
    testing::ManualClock clock(int64_t{INT32_MAX} + 1);
    EXPECT_EQ(mtick(), INT32_MIN);
    EXPECT_EQ(tickDifference(mtick(), INT32_MAX), 1);
    EXPECT_EQ(tickDifference(INT32_MAX, 0), INT32_MAX);
}

TEST(ProcessName, IsTheFirstWordOfTheCommandLine) {
    std::string word;
    std::ifstream file("/proc/self/cmdline");
    std::getline(file, word, '\0');
    EXPECT_EQ(getCurrentProcessName(), word.substr(0, 1023));
}

TEST(Uuid, IsRandomAndHasItsSubstituteWhereTheDeviceCannotBeOpened) {
    testing::LogCapture log;
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(seen.insert(uuid()).second);
    EXPECT_EQ(log.count("[ATTENTION]"), 0);
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(seen.insert(uuid2()).second);
    EXPECT_EQ(log.count("[ATTENTION]"), 100);
    const testing::ExhaustedDescriptors none;
    EXPECT_EQ(uuid().size(), 36u);
    EXPECT_EQ(log.count("[ATTENTION]"), 101);
}

// The same checksum one bit at a time, without a table.
uint32_t addBitByBit(uint32_t crc, uint8_t byte) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) * 0xEDB88320u);
    return crc;
}

// Which of the two ways the public call takes depends on the processor.
TEST(Crc32, EqualsABitByBitComputationAtEveryLengthWithAndWithoutTheProcessorsHelp) {
    std::vector<uint8_t> bytes(66000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * i * 7 >> 5);
    for (size_t size = 0; size < 66000; size += size < 300 ? 1 : 997) {
        const uint8_t* unaligned = bytes.data() + 65999 - size;
        uint32_t expected = 0xFFFFFFFF;
        for (size_t i = 0; i < size; ++i) expected = addBitByBit(expected, unaligned[i]);
        ASSERT_EQ(checksum::addByTables(0xFFFFFFFF, unaligned, size), expected) << size;
        for (size_t rest = size; rest != 0; rest >>= 8) {
            expected = addBitByBit(expected, static_cast<uint8_t>(rest));
        }
        ASSERT_EQ(crc32(unaligned, static_cast<int>(size)), expected) << size;
    }
    EXPECT_EQ(crc32("x", -5), 0xFFFFFFFF);
    // The published check value is 0xCBF43926, inverted 0x340BC6D9; the length moves it on.
    EXPECT_EQ(crc32("123456789", 9), addBitByBit(0x340BC6D9, 9));
}

// The last digest is that of the digests of every length around the block's padding limits,
// computed with another implementation.
TEST(Md5, PadsEveryLengthAroundABlockAndTakesItsBytesInPieces) {
    const auto md5Of = [](const std::string& text) {
        return md5sum(text.data(), static_cast<int>(text.size()));
    };
    EXPECT_EQ(md5sum("abc", -1), "D41D8CD98F00B204E9800998ECF8427E") << "no bytes";
    std::string digests;
    for (size_t size = 0; size <= 200; ++size) digests += md5Of(std::string(size, 'x'));
    EXPECT_EQ(md5Of(digests), "8AE09F497C75770BAAF4597F52858CDD");
    Crc32 crc;
    Md5 md5;
    for (size_t at = 0, piece = 0; at < digests.size(); at += piece++) {
        piece = std::min(piece, digests.size() - at);
        crc.add(digests.data() + at, piece);
        md5.add(digests.data() + at, piece);
    }
    EXPECT_EQ(crc.value(), crc32(digests.data(), static_cast<int>(digests.size())));
    EXPECT_EQ(md5.text(), md5Of(digests));
}

}  // namespace
}  // namespace vyn::helper
