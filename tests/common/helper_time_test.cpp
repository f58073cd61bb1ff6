#include <gtest/gtest.h>
#include <vyn/helper.h>

#include <chrono>
#include <cstdint>

#include "common/tick.h"

namespace vyn::helper {
namespace {

// While it lives, ticks come from `now`.
class ManualClock {
  public:
    explicit ManualClock(int64_t start) {
        now = start;
        tick::setSource([] { return now; });
    }
    ~ManualClock() { tick::setSource(nullptr); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    inline static int64_t now = 0;
};

TEST(Tick, TurnsNegativeBehindItsLargestValueAndComesRoundToZero) {
    ManualClock clock(INT32_MAX);
    const long largest = mtick();
    EXPECT_EQ(largest, INT32_MAX);
    ++ManualClock::now;
    EXPECT_EQ(mtick(), INT32_MIN);
    EXPECT_EQ(tickDifference(mtick(), largest), 1);
    EXPECT_EQ(tickDifference(largest, mtick()), -1);
    ManualClock::now = int64_t{1} << 32;
    EXPECT_EQ(mtick(), 0);
}

TEST(Tick, DifferencesAreExactAcrossBothWraps) {
    EXPECT_EQ(tickDifference(INT32_MIN + 100, INT32_MAX - 99), 200);
    EXPECT_EQ(tickDifference(100, -100), 200);
    EXPECT_EQ(tickDifference(-100, 100), -200);
    EXPECT_EQ(tickDifference(INT32_MAX, 0), INT32_MAX);
    EXPECT_EQ(tickDifference(5, 5), 0);
}

TEST(Tick, FollowsTheMonotonicClock) {
    const int64_t before = ntick() / 1000000;
    const long between = mtick();
    const int64_t after = ntick() / 1000000;
    EXPECT_GE(tickDifference(between, tick::toTick(before)), 0);
    EXPECT_GE(tickDifference(tick::toTick(after), between), 0);
}

long wallClockTick() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return tick::toTick(std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count());
}

TEST(Abstime, IsTheLow32BitsOfTheEpochsMilliseconds) {
    const long before = wallClockTick();
    const long between = abstime();
    EXPECT_EQ(between, static_cast<int32_t>(between));
    EXPECT_GE(tickDifference(between, before), 0);
    EXPECT_GE(tickDifference(wallClockTick(), between), 0);
}

}  // namespace
}  // namespace vyn::helper
