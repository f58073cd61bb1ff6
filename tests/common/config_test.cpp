#include <gtest/gtest.h>
#include <vyn/config.h>
#include <vyn/helper.h>

#include <thread>

#include "logging/log_settings.h"
#include "support/log_capture.h"
#include "support/property_file.h"

// The manual's page on configuration says what each getter does, and a script that it does so.
namespace vyn::testing {
namespace {

TEST(Config, ReadsNumbersOnlyWhenTheyAreWholeAndInRange) {
    const PropertyFile file;
    for (const std::string text :
         {"0250", "0", "3600000", "12x", "0x10", "1 2", "+5", "-1", "99999999999", "3600001"}) {
        LogCapture log;
        Property::set("persist.vyn.net.ht_interval", text);
        const bool isGood = config::getNetHeartbitInterval() != 10000;
        EXPECT_EQ(isGood, text == "0250" || text == "0" || text == "3600000") << text;
        EXPECT_EQ(log.count("property persist.vyn.net.ht_interval: \"" + text +
                            "\" is of no use, taking \"10000\"."),
                  isGood ? 0 : 1);
    }
}

TEST(Config, ReadsSwitchesByTheirWordsAndFoldersByTheirSlashes) {
    const PropertyFile file("persist.sys.factory.mode=maybe\npersist.vyn.unixsocketpath=tmp/\n");
    EXPECT_FALSE(config::isFactoryMode());
    EXPECT_EQ(config::getUnixSocketPath(), "/dev/vyn/");
    for (const char* word : {"1", "y", "yes", "on", "true"}) {
        Property::set("persist.sys.factory.mode", word);
        EXPECT_TRUE(config::isFactoryMode()) << word;
    }
    for (const char* word : {"0", "n", "no", "off", "false"}) {
        Property::set("persist.vyn.try_direct", word);
        EXPECT_FALSE(config::isTryDirect()) << word;
    }
    for (const char* path : {"/tmp/a", "/tmp/a/"}) {
        Property::set("persist.vyn.unixsocketpath", path);
        EXPECT_EQ(config::getUnixSocketPath(), "/tmp/a/");
    }
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
