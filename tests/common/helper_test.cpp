#include <gtest/gtest.h>
#include <vyn/helper.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <set>
#include <thread>

#include "support/descriptors.h"
#include "support/emulator.h"
#include "support/log_capture.h"
#include "support/manual_clock.h"

namespace vyn::helper {
namespace {

using Pieces = std::vector<std::string>;

TEST(HelperString, TrimsTheSetAtBothEndsOnly) {
    EXPECT_EQ(trim("\t a b\r\n"), "a b");
    EXPECT_EQ(trim("xxaxx", "x"), "a");
    EXPECT_EQ(trim(" \n "), "");
}

TEST(HelperString, SplitsAtEachDelimiterAndIntoAContainerWithoutAnEmptyLastPiece) {
    for (Pieces pieces : {Pieces{"a", "", "b"}, Pieces{"a", ""}, Pieces{"", ""}, Pieces{""}}) {
        const std::string text = implode(pieces, ",");
        EXPECT_EQ(split(text, ','), pieces);
        if (pieces.back().empty()) pieces.pop_back();
        Pieces vector{"old"};
        std::list<std::string> list{"old"};
        EXPECT_EQ(split(text, vector, ','), static_cast<int>(pieces.size()));
        EXPECT_EQ(split(text, list, ','), static_cast<int>(pieces.size()));
        EXPECT_EQ(vector, pieces);
        EXPECT_EQ(l2v(list), pieces);
        EXPECT_EQ(v2l(vector), list);
    }
    EXPECT_EQ(implode({"a", "", "b"}, ", "), "a, , b");
    EXPECT_EQ(dumplist({"a", "b"}, '|'), "|a|b|");
    EXPECT_EQ(dumplist({}, '|'), "|");
}

TEST(HelperString, StartsWithNeitherAnEmptyNorALongerPrefix) {
    EXPECT_TRUE(startsWith("abc", "abc"));
    for (const char* prefix : {"abcd", "b", ""}) EXPECT_FALSE(startsWith("abc", prefix));
}

TEST(Tick, TurnsNegativeBehindItsLargestValueAndDifferencesStayExact) {
    testing::ManualClock clock(INT32_MAX);
    const long largest = mtick();
    clock.advance(1);
    EXPECT_EQ(mtick(), INT32_MIN);
    EXPECT_EQ(tickDifference(mtick(), largest), 1);
    EXPECT_EQ(tickDifference(largest, mtick()), -1);
    EXPECT_EQ(tickDifference(INT32_MAX, 0), INT32_MAX);
}

TEST(Tick, FollowsItsClock) {
    const auto wallClock = [] {
        const auto time = std::chrono::system_clock::now().time_since_epoch();
        return tick::toTick(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
    };
    const long monotonic = tick::toTick(ntick() / 1000000), wall = wallClock();
    const long ticks = mtick(), absolute = abstime();
    EXPECT_GE(tickDifference(ticks, monotonic), 0);
    EXPECT_GE(tickDifference(tick::toTick(ntick() / 1000000), ticks), 0);
    EXPECT_GE(tickDifference(absolute, wall), 0);
    EXPECT_GE(tickDifference(wallClock(), absolute), 0);
    sleep(-1);
    EXPECT_LT(ntick() / 1000000 - monotonic, 30000) << "at once";
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

TEST(ProcessNameDeathTest, IsTheFirstWordOfTheCommandLineAndAskedForAgainAfterAFailure) {
    testing::startDeathTestsAnew();
    EXPECT_EXIT(askForNameTwice(), ::testing::ExitedWithCode(7), "Too many open files. open");
}

// How many of a hundred identifiers have the marks of a version and a variant at their places.
int marked(std::string (*make)()) {
    int marked = 0;
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        std::string id = make();
        seen.insert(id);
        marked += id[14] == '4' && std::string("89ab").find(id[19]) != std::string::npos;
        for (char& c : id) c = std::string("0123456789abcdef").find(c) < 16 ? 'x' : c;
        EXPECT_EQ(id, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx");
    }
    EXPECT_EQ(seen.size(), 100u);
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

}  // namespace
}  // namespace vyn::helper
