// SPDX-License-Identifier: Apache-2.0

#include <vyn/helper.h>

#include <cstring>

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

// The manual's page on configuration says what each getter does, and a script sees that it does so.
TEST(Config, ReadsNumbersOnlyWhenTheyAreWholeAndInRange) {
    const PropertyFile file;
    for (const std::string text : {"12x", "0x10", "1 2", "+5", "-1", "99999999999", "3600001"}) {
        LogCapture log;
        Property::set("persist.vyn.net.ht_interval", text);
        EXPECT_EQ(config::getNetHeartbitInterval(), 10000) << text;
        EXPECT_EQ(log.count("\"" + text + "\" is of no use, taking \"10000\"."), 1);
    }
    for (const std::string text : {"0250", "0", "3600000"}) {
        Property::set("persist.vyn.net.ht_interval", text);
        EXPECT_EQ(config::getNetHeartbitInterval(), std::stoi(text));
    }
}

TEST(Config, ReadsSwitchesByTheirWordsAndFoldersByTheirSlashes) {
    const PropertyFile file;
    for (const char* path : {"tmp/", "/tmp/a", "/tmp/a/"}) {
        Property::set("persist.vyn.unixsocketpath", path);
        EXPECT_EQ(config::getUnixSocketPath(), *path == '/' ? "/tmp/a/" : "/dev/vyn/");
    }
    for (const char* word : {"1", "y", "yes", "true", "maybe", "0", "n", "no", "off", "false"}) {
        Property::set("persist.sys.factory.mode", word);
        Property::set("persist.vyn.try_direct", word);
        const bool isYes = std::strchr("1yt", *word) != nullptr;
        EXPECT_EQ(config::isFactoryMode(), isYes) << word;
        EXPECT_EQ(config::isTryDirect(), isYes || *word == 'm') << word;
    }
    Property::set("persist.sys.factory.mode", "on");
    EXPECT_TRUE(config::isFactoryMode());
}

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
