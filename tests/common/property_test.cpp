// SPDX-License-Identifier: Apache-2.0

#include <vyn/helper.h>

#include "logging/log_settings.h"
#include "support/support.h"

namespace vyn::testing {
namespace {

const std::string kLongest(91, 'x');

std::string valueOf(const std::string& key) { return Property::get(key, "default"); }

TEST(Property, IsSetInMemoryAndReadFromTheFileAgainByReloading) {
    const PropertyFile file("# mine\n a.b = some text \nempty=\n");
    EXPECT_EQ(valueOf("a.b") + valueOf("empty"), "some textdefault");
    for (const std::string value : {"2", ""}) {
        EXPECT_TRUE(Property::set("a.b", value));
        EXPECT_EQ(valueOf("a.b"), value.empty() ? "default" : value);
    }
    Property::reload();
    EXPECT_EQ(valueOf("a.b"), "some text");
    unsetenv("VYN_PROPERTY_FILE");
    LogCapture log;
    Property::reload();
    EXPECT_EQ(valueOf("a.b"), "default");
    EXPECT_TRUE(log.lines().empty()) << "no file is none";
}

TEST(Property, RefusesAnEmptyKeyAndValuesOfMoreThan91Characters) {
    const PropertyFile file("fits=" + kLongest + "\nlong=" + kLongest + "y\n");
    LogCapture log;
    Property::reload();
    EXPECT_EQ(valueOf("fits"), kLongest);
    EXPECT_EQ(valueOf("long"), "default");
    EXPECT_EQ(log.count("property long left out: its value has more than 91 characters."), 1);
    EXPECT_TRUE(Property::set("a", kLongest));
    EXPECT_FALSE(Property::set("a", kLongest + "y") || Property::set("", "value"));
}

TEST(Property, RefusesWhatADeviceRefuses) {
    const std::string longer(200, 'x');
    const PropertyFile file("a b=1\n=2\nbad=\xff\nro.long=" + longer + "\ngood=\u00e4\n");
    for (const std::string key : {"a b", "", "bad"}) EXPECT_EQ(valueOf(key), "default");
    EXPECT_EQ(valueOf("good") + valueOf("ro.long"), "\u00e4" + longer);
    for (const char* key : {".a", "a.", "a..b", "a/b", "\u00e4"}) {
        EXPECT_FALSE(Property::set(key, "1")) << key;
    }
    EXPECT_FALSE(Property::set("key", std::string("a\0b", 3)));
    // Cut off, longer than needed, half of a pair, beyond the last character.
    for (const char* value : {"\xc3", "\xe2\x82", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80",
                              "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\x80"}) {
        EXPECT_FALSE(Property::set("key", value)) << value;
    }
    for (const char* value : {"\xed\x9f\xbf", "\xee\x80\x80", "\xf4\x8f\xbf\xbf", "\x7f"}) {
        EXPECT_TRUE(Property::set("a-b@c:d_e.F9", value)) << value;
    }
}

TEST(Property, WritesReadOnlyKeysOnce) {
    const PropertyFile file("ro.there=1\n");
    EXPECT_TRUE(Property::set("ro.new", "1"));
    for (const char* key : {"ro.there", "ro.new"}) {
        EXPECT_FALSE(Property::set(key, "1") || Property::set(key, "2")) << key;
        EXPECT_EQ(valueOf(key), "1");
    }
    for (const char* value : {"1", "2"}) EXPECT_TRUE(Property::set("zero.new", value));
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

// The manual's page on configuration says what each getter reads, and a script sees that it does
// so.
TEST(Config, WarnsOnceAboutAUselessValueFromWhateverThreadAndAgainAboutAnother) {
    const PropertyFile file;
    LogCapture log;
    const auto readOften = [] {
        for (int call = 0; call < 100; ++call) EXPECT_EQ(config::getAuthMode(), 0);
    };
    for (const char* useless : {"one", "another"}) {
        Property::set("persist.vyn.auth_mode", useless);
        std::thread reader(readOften);
        readOften();
        reader.join();
    }
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST(Config, AppliesTheLogLevelAndToTheNamedProcessThePrintLevel) {
    const std::string name = helper::getCurrentProcessName();
    const std::string levels = "sys.vt.vyn.loglevel=4\nsys.vt.vyn.log.printlevel=3\n";
    if (name.size() > 90) GTEST_SKIP() << "too long for a property: " << name;
    for (const std::string& named : {std::string(), name, name + "2"}) {
        const PropertyFile file(levels + "sys.vt.vyn.log.printlevel.pname=" + named + "\n");
        const LogCapture restoresTheLevels;
        logging::setLogPrintLevel(2);
        config::applyLogLevels();
        EXPECT_EQ(logging::getLogLevel(), 4) << "whatever the process";
        EXPECT_EQ(logging::settings::printLevel(), named == name + "2" ? 2 : 3);
    }
}

}  // namespace
}  // namespace vyn::testing
