// SPDX-License-Identifier: Apache-2.0

// The files that only a device uses, over a device in memory. Built once for each way of reaching
// the property service.

#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/system_properties.h>
#include <vyn/property.h>

#include "logging/log_platform.h"

namespace vyn {
namespace {

TEST(DeviceProperty, GivesWhatTheServiceTookAndElseTheDefault) {
    const std::string longest(91, 'x'), longer(200, 'x');
    EXPECT_EQ(Property::get("key", longer), longer) << "not cut to the length of a value";
    EXPECT_TRUE(Property::set("key", longest));
    EXPECT_FALSE(Property::set("key", longest + 'y'));
    EXPECT_EQ(Property::get("key", "default"), longest);
    EXPECT_TRUE(Property::set("key", ""));
    EXPECT_EQ(Property::get("key", "default"), "default");
    EXPECT_TRUE(Property::set("ro.key", "first"));
    EXPECT_FALSE(Property::set("ro.key", "second")) << "as the service refuses";
    EXPECT_EQ(Property::get("ro.key", ""), "first");
    ASSERT_EQ(__system_property_set("ro.long", longer.c_str()), 0);
    EXPECT_EQ(Property::get("ro.long", "default"), longer);
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
