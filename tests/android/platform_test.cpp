// The files that only a device uses, over a device in memory. Built once for each way of reaching
// the property service.

#include <android/log.h>
#include <gtest/gtest.h>
#include <vyn/property.h>

#include "logging/log_platform.h"

namespace vyn {
namespace {

TEST(DeviceProperty, GivesWhatWasSetAndElseTheDefault) {
    EXPECT_EQ(Property::get("absent", "default"), "default");
    EXPECT_TRUE(Property::set("key", "value"));
    EXPECT_EQ(Property::get("key", "default"), "value");
    EXPECT_TRUE(Property::set("key", ""));
    EXPECT_EQ(Property::get("key", "default"), "default");
}

TEST(DeviceProperty, DoesNotCutADefaultToTheLengthOfAValue) {
    const std::string longer(200, 'x');
    EXPECT_EQ(Property::get("absent", longer), longer);
}

TEST(DeviceProperty, TakesValuesOfUpTo91Characters) {
    const std::string longest(91, 'x');
    EXPECT_TRUE(Property::set("long", longest));
    EXPECT_FALSE(Property::set("long", longest + 'y'));
    EXPECT_EQ(Property::get("long", ""), longest);
}

TEST(DeviceProperty, ReportsThatTheServiceRefuses) {
    EXPECT_TRUE(Property::set("ro.key", "first"));
    EXPECT_FALSE(Property::set("ro.key", "second"));
    EXPECT_EQ(Property::get("ro.key", ""), "first");
}

TEST(DeviceLog, WritesALineUnderItsPriorityAndTag) {
    ::testing::internal::CaptureStderr();
    logging::platform::writeLine(ANDROID_LOG_WARN, "Tag", "line");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "5 Tag line\n");
}

TEST(DeviceLogDeathTest, LeavesTheFatalLineAsTheAbortMessage) {
    EXPECT_EXIT(logging::platform::abortProcess("fatal line"), ::testing::KilledBySignal(SIGABRT),
                "abort message: fatal line");
}

}  // namespace
}  // namespace vyn
