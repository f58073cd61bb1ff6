#include <gtest/gtest.h>
#include <vyn/property.h>

#include <thread>

#include "support/log_capture.h"
#include "support/property_file.h"

namespace vyn::testing {
namespace {

const std::string kLongest(91, 'x');

std::string valueOf(const std::string& key) { return Property::get(key, "default"); }

TEST(Property, IsSetInMemoryAndReadFromTheFileAgainByReloading) {
    const PropertyFile file("# mine\n a.b = some text \nempty=\n");
    EXPECT_EQ(valueOf("a.b"), "some text");
    EXPECT_EQ(valueOf("empty"), "default");
    EXPECT_TRUE(Property::set("a.b", "2"));
    EXPECT_EQ(valueOf("a.b"), "2");
    EXPECT_TRUE(Property::set("a.b", ""));
    EXPECT_EQ(valueOf("a.b"), "default");
    Property::reload();
    EXPECT_EQ(valueOf("a.b"), "some text");
    unsetenv("VYN_PROPERTY_FILE");
    LogCapture log;
    Property::reload();
    EXPECT_EQ(valueOf("a.b"), "default");
    EXPECT_TRUE(log.lines().empty()) << "no file is none";
}

TEST(Property, RefusesAnEmptyKeyAndValuesOfMoreThan91Characters) {
    LogCapture log;
    const PropertyFile file("fits=" + kLongest + "\nlong=" + kLongest + "y\n");
    EXPECT_EQ(valueOf("fits"), kLongest);
    EXPECT_EQ(valueOf("long"), "default");
    EXPECT_EQ(log.count("property long left out: its value has more than 91 characters."), 1);
    EXPECT_TRUE(Property::set("a", kLongest));
    EXPECT_FALSE(Property::set("a", kLongest + "y"));
    EXPECT_EQ(valueOf("a"), kLongest);
    EXPECT_FALSE(Property::set("", "value"));
}

TEST(Property, WritesReadOnlyKeysOnce) {
    const PropertyFile file("ro.there=1\n");
    EXPECT_FALSE(Property::set("ro.there", "2"));
    EXPECT_EQ(valueOf("ro.there"), "1");
    EXPECT_TRUE(Property::set("ro.new", "1"));
    EXPECT_FALSE(Property::set("ro.new", "1")) << "not even to what it is";
    EXPECT_TRUE(Property::set("zero.new", "1"));
    EXPECT_TRUE(Property::set("zero.new", "2"));
}

TEST(Property, GivesWholeValuesWhileAnotherThreadSetsAndReloads) {
    const std::string other(91, '2');
    const PropertyFile file("key=" + kLongest + "\n");
    std::thread writer([&] {
        for (int turn = 0; turn < 200; ++turn) {
            Property::set("key", other);
            Property::reload();
        }
    });
    for (int turn = 0; turn < 2000; ++turn) {
        const std::string value = valueOf("key");
        EXPECT_TRUE(value == kLongest || value == other) << value;
    }
    writer.join();
}

}  // namespace
}  // namespace vyn::testing
