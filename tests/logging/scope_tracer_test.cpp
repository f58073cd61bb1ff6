#include <gtest/gtest.h>
#include <vyn/logging.h>

#include <chrono>
#include <thread>

#include "support/log_capture.h"

namespace logging {
namespace {

using vyn::testing::LogCapture;

TEST(ScopeTracer, LogsEntryAndExitWithTheElapsedTime) {
    LogCapture capture;
    {
        VYN_TRACE_SCOPE("load");
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    ASSERT_EQ(capture.texts().size(), 2u);
    EXPECT_EQ(capture.texts()[0], "enter load");
    int elapsed = -1;
    ASSERT_EQ(std::sscanf(capture.texts()[1].c_str(), "leave load, %d ms", &elapsed), 1);
    EXPECT_GE(elapsed, 3);
}

TEST(TimerScopeTracer, LogsOnlyAScopeOverItsThreshold) {
    LogCapture capture;
    { VYN_TRACE_SLOW_SCOPE("quick", 60000); }
    EXPECT_TRUE(capture.lines().empty());
    {
        VYN_TRACE_SLOW_SCOPE("slow", 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    EXPECT_EQ(capture.count("slow took "), 1);
    EXPECT_EQ(capture.lines().size(), 1u);
}

}  // namespace
}  // namespace logging
