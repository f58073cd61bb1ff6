#include <gtest/gtest.h>
#include <vyn/config.h>
#include <vyn/helper.h>

#include <thread>
#include <vector>

#include "logging/log_settings.h"
#include "support/log_capture.h"
#include "support/property_file.h"

namespace vyn {
namespace {

using testing::LogCapture;
using testing::PropertyFile;

// A text that no property had before in this process, so that a warning about it is due.
std::string uselessText() {
    static int number = 0;
    return "useless" + std::to_string(++number);
}

TEST(Config, ReadsNumbersOnlyWhenTheyAreWholeAndInRange) {
    const PropertyFile file;
    for (const char* useless :
         {"12x", "0x10", "1.5", "1 2", "+5", "-1", "99999999999", "3600001"}) {
        LogCapture capture;
        Property::set("persist.vyn.net.ht_interval", useless);
        EXPECT_EQ(config::getNetHeartbitInterval(), 10000) << useless;
        EXPECT_EQ(capture.count("property persist.vyn.net.ht_interval: \"" + std::string(useless) +
                                "\" is of no use, taking \"10000\"."),
                  1);
        EXPECT_EQ(capture.lines().size(), 1U);
    }
    Property::set("persist.vyn.net.ht_interval", "0250");
    EXPECT_EQ(config::getNetHeartbitInterval(), 250);
}

TEST(Config, ReadsSwitchesByTheirWords) {
    const PropertyFile file;
    for (const char* word : {"1", "y", "yes", "on", "true"}) {
        Property::set("persist.sys.factory.mode", word);
        EXPECT_TRUE(config::isFactoryMode()) << word;
    }
    for (const char* word : {"0", "n", "no", "off", "false"}) {
        Property::set("persist.vyn.try_direct", word);
        EXPECT_FALSE(config::isTryDirect()) << word;
    }
    LogCapture capture;
    const std::string useless = uselessText();
    Property::set("persist.vyn.try_direct", useless);
    EXPECT_TRUE(config::isTryDirect());
    EXPECT_EQ(capture.count(useless), 1);
}

TEST(Config, GivesTheSocketFolderWithASlashAtItsEnd) {
    const PropertyFile file("persist.vyn.unixsocketpath=/tmp/a\n");
    EXPECT_EQ(config::getUnixSocketPath(), "/tmp/a/");
    Property::set("persist.vyn.unixsocketpath", "/tmp/b/");
    EXPECT_EQ(config::getUnixSocketPath(), "/tmp/b/");
    LogCapture capture;
    const std::string relative = uselessText();
    Property::set("persist.vyn.unixsocketpath", relative);
    EXPECT_EQ(config::getUnixSocketPath(), "/dev/vyn/");
    EXPECT_EQ(capture.count(relative), 1);
}

TEST(Config, WarnsOnceAboutAUselessValueAndAgainAboutAnother) {
    const PropertyFile file;
    LogCapture capture;
    for (int turn = 0; turn < 2; ++turn) {
        Property::set("persist.vyn.auth_mode", uselessText());
        for (int call = 0; call < 3; ++call) EXPECT_EQ(config::getAuthMode(), 0);
    }
    EXPECT_EQ(capture.lines().size(), 2U);
}

TEST(Config, WarnsOnceWhenManyThreadsReadAUselessValue) {
    const PropertyFile file("persist.vyn.auth_mode=" + uselessText() + "\n");
    LogCapture capture;
    std::vector<std::thread> readers;
    for (int i = 0; i < 8; ++i) {
        readers.emplace_back([] {
            for (int call = 0; call < 100; ++call) EXPECT_EQ(config::getAuthMode(), 0);
        });
    }
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(capture.lines().size(), 1U);
}

// The levels that applyLogLevels() makes of a file, after both were 2.
struct Levels {
    explicit Levels(const std::string& content) {
        const PropertyFile file(content);
        const LogCapture restoresTheLevels;
        logging::setLogLevel(2);
        logging::setLogPrintLevel(2);
        config::applyLogLevels();
        log = logging::getLogLevel();
        print = logging::settings::printLevel();
    }

    int log;
    int print;
};

TEST(Config, AppliesTheLogLevelsOfTheProperties) {
    const Levels given("sys.vt.vyn.loglevel=3\nsys.vt.vyn.log.printlevel=0\n");
    EXPECT_EQ(given.log, 3);
    EXPECT_EQ(given.print, 0);
    const Levels defaults("");
    EXPECT_EQ(defaults.log, 5);
    EXPECT_EQ(defaults.print, 1);
}

TEST(Config, AppliesThePrintLevelOnlyToTheNamedProcess) {
    const std::string name = helper::getCurrentProcessName();
    if (name.size() >= Property::kMaxValueLength)
        GTEST_SKIP() << "too long for a property: " << name;
    const std::string levels = "sys.vt.vyn.loglevel=4\nsys.vt.vyn.log.printlevel=3\n";

    const Levels own(levels + "sys.vt.vyn.log.printlevel.pname=" + name + "\n");
    EXPECT_EQ(own.print, 3);
    const Levels other(levels + "sys.vt.vyn.log.printlevel.pname=" + name + "2\n");
    EXPECT_EQ(other.print, 2) << "as it was";
    EXPECT_EQ(other.log, 4) << "whatever the process";
}

TEST(Config, KeepsItsSwitchesApart) {
    EXPECT_FALSE(config::isAsyncWritting());
    EXPECT_FALSE(config::debug::DEBUG_BUF());
    EXPECT_FALSE(config::debug::DEBUG_THREAD_POOL_CHECK());
    config::debug::setDEBUG_BUF(true);
    EXPECT_FALSE(config::isAsyncWritting());
    EXPECT_TRUE(config::debug::DEBUG_BUF());
    EXPECT_FALSE(config::debug::DEBUG_THREAD_POOL_CHECK());
    config::debug::setDEBUG_BUF(false);
}

}  // namespace
}  // namespace vyn
