// SPDX-License-Identifier: Apache-2.0

#include <fnmatch.h>
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
    EXPECT_EQ(implode({"a", "", "b"}, ", "), "a, , b");
    EXPECT_EQ(dumplist({"a", "b"}, '|') + dumplist({}, '|'), "|a|b||");
}

TEST(Tick, FollowsItsClockAndTurnsNegativeBehindItsLargestValue) {
    using std::chrono::duration_cast, std::chrono::milliseconds, std::chrono::system_clock;
    const long monotonic = tick::toTick(ntick() / 1000000), ticks = mtick(), absolute = abstime();
    const auto wall = duration_cast<milliseconds>(system_clock::now().time_since_epoch());
    sleep(-1);
    for (const long passed : {tickDifference(ticks, monotonic), tickDifference(mtick(), ticks),
                              tickDifference(tick::toTick(wall.count()), absolute)}) {
        EXPECT_TRUE(passed >= 0 && passed < 30000) << passed;
    }
    testing::ManualClock clock(int64_t{INT32_MAX} + 1);
    EXPECT_EQ(mtick(), INT32_MIN);
    EXPECT_EQ(tickDifference(mtick(), INT32_MAX), 1);
    EXPECT_EQ(tickDifference(INT32_MAX, 0), INT32_MAX);
}

// Asks for the name without and then with descriptors to read it.
void askForNameTwice() {
    {
        const testing::ExhaustedDescriptors none;
        if (!getCurrentProcessName().empty()) return;
    }
    std::string word;
    std::ifstream file("/proc/self/cmdline");
    std::getline(file, word, '\0');
    std::_Exit(getCurrentProcessName() == word.substr(0, 1023) ? 7 : 1);
}

// In a new process, in which nobody has asked yet. Under an emulator, which cannot execute another,
// a fork is as good where ctest runs each test by itself.
TEST(ProcessNameDeathTest, IsTheFirstWordOfTheCommandLineAndAskedForAgainAfterAFailure) {
    std::string command;
    std::ifstream("/proc/self/comm") >> command;
    GTEST_FLAG_SET(death_test_style, command.rfind("qemu-", 0) == 0 ? "fast" : "threadsafe");
    EXPECT_EXIT(askForNameTwice(), ::testing::ExitedWithCode(7), "Too many open files. open");
}

// How many of a hundred identifiers have the marks of a version and a variant at their places.
int marked(std::string (*make)()) {
    std::string form;
    for (const char each : std::string("xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx")) {
        form += each == 'x' ? "[0-9a-f]" : "-";
    }
    const auto matches = [](const std::string& id, const std::string& pattern) {
        return fnmatch(pattern.c_str(), id.c_str(), 0) == 0;
    };
    std::set<std::string> seen;
    int marked = 0;
    for (int i = 0; i < 100; ++i) {
        const std::string id = make();
        EXPECT_TRUE(matches(id, form) && seen.insert(id).second) << id;
        marked += matches(id, "??????????????4????[89ab]*");
    }
    return marked;
}

TEST(Uuid, IsRandomAndHasItsSubstituteWhereTheDeviceCannotBeOpened) {
    testing::LogCapture log;
    EXPECT_LT(marked(uuid), 50);
    EXPECT_EQ(log.count("[ATTENTION]"), 0);
    EXPECT_EQ(marked(uuid2), 100);
    EXPECT_EQ(log.count("[ATTENTION]"), 100);
    const testing::ExhaustedDescriptors none;
    EXPECT_EQ(marked(uuid), 100);
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

// The first digest is one of RFC 1321; the last is that of the digests of every length around the
// block's padding limits, computed with another implementation.
TEST(Md5, PadsEveryLengthAroundABlock) {
    const auto md5Of = [](const std::string& text) {
        return md5sum(text.data(), static_cast<int>(text.size()));
    };
    EXPECT_EQ(md5sum("abc", -1), "D41D8CD98F00B204E9800998ECF8427E") << "no bytes";
    std::string digests;
    for (size_t size = 0; size <= 200; ++size) digests += md5Of(std::string(size, 'x'));
    EXPECT_EQ(md5Of(digests), "8AE09F497C75770BAAF4597F52858CDD");
}

}  // namespace
}  // namespace vyn::helper
