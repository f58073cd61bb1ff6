#include <gtest/gtest.h>
#include <vyn/diagnoser.h>

#include "support/log_capture.h"

namespace vyn {
namespace {

constexpr uint64_t kMs = 1000000;

TEST(Diagnoser, KnowsNothingFromFewerThanTwoMarksOrFromNoTime) {
    Diagnoser diagnoser(50);
    EXPECT_EQ(diagnoser.busyPercent(), 0);
    diagnoser.record(true, 5);
    EXPECT_EQ(diagnoser.busyPercent(), 0);
    diagnoser.record(false, 5);
    EXPECT_EQ(diagnoser.busyPercent(), 0);
}

TEST(Diagnoser, CountsTheTimeBeforeEachWaitAsBusy) {
    Diagnoser diagnoser(50);
    diagnoser.record(false, 0);
    diagnoser.record(true, 10 * kMs);
    diagnoser.record(false, 12 * kMs);
    EXPECT_EQ(diagnoser.busyPercent(), 16);
}

TEST(Diagnoser, ForgetsAllButTheLastMarks) {
    Diagnoser diagnoser(3);
    diagnoser.record(true, 0);
    diagnoser.record(false, 1000 * kMs);
    diagnoser.record(true, 1001 * kMs);
    diagnoser.record(false, 1002 * kMs);
    EXPECT_EQ(diagnoser.busyPercent(), 50);
    diagnoser.record(true, 1004 * kMs);
    EXPECT_EQ(diagnoser.busyPercent(), 33);
}

TEST(Diagnoser, TakesTheTimeOfDayFromTheClock) {
    Diagnoser diagnoser(50);
    diagnoser.record(true);
    while (diagnoser.busyPercent() == 0) diagnoser.record(false);
    EXPECT_EQ(diagnoser.busyPercent(), 100);
}

TEST(Diagnoser, DumpsItsMarksInTens) {
    testing::LogCapture capture;
    Diagnoser diagnoser(50);
    for (int i = 0; i < 51; ++i) diagnoser.record(i % 2 != 0, static_cast<uint64_t>(i));
    diagnoser.dump();
    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{"X.X.X.X.X. X.X.X.X.X. X.X.X.X.X. X.X.X.X.X. X.X.X.X.X."});
}

}  // namespace
}  // namespace vyn
