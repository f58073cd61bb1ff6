#include <gtest/gtest.h>
#include <vyn/property.h>

#include <thread>
#include <vector>

#include "support/emulator.h"
#include "support/log_capture.h"
#include "support/property_file.h"

namespace vyn {
namespace {

using testing::LogCapture;
using testing::PropertyFile;
using testing::TemporaryFolder;

std::string valueOf(const std::string& key) { return Property::get(key, "default"); }

TEST(Property, ReadsTheFileThatTheEnvironmentNames) {
    const PropertyFile file("# mine\n a.b = some text \nempty=\n");
    EXPECT_EQ(valueOf("a.b"), "some text");
    EXPECT_EQ(valueOf("empty"), "default");
    EXPECT_EQ(valueOf("absent"), "default");
}

// Whether the file is read by the first use of a property in the process, and not by the next.
bool readsAtTheFirstUse() {
    const TemporaryFolder folder;
    setenv("VYN_PROPERTY_FILE", folder.write("properties", "key=first\n").c_str(), 1);
    const bool isRead = valueOf("key") == "first";
    folder.write("properties", "key=second\n");
    return isRead && valueOf("key") == "first";
}

TEST(PropertyDeathTest, ReadsTheFileAtTheFirstUse) {
    testing::startDeathTestsAnew();
    EXPECT_EXIT(std::_Exit(readsAtTheFirstUse() ? 7 : 1), ::testing::ExitedWithCode(7), "");
}

TEST(Property, ReloadingReadsTheFileAgainAndForgetsWhatWasSet) {
    const PropertyFile file("a=1\n");
    EXPECT_TRUE(Property::set("a", "2"));
    EXPECT_TRUE(Property::set("b", "3"));
    file.rewrite("a=4\n");
    EXPECT_EQ(valueOf("a"), "4");
    EXPECT_EQ(valueOf("b"), "default");
}

TEST(Property, HasNoneAndIsSilentWithoutAFile) {
    { const PropertyFile file("a=1\n"); }
    LogCapture capture;
    Property::reload();
    EXPECT_EQ(valueOf("a"), "default");
    EXPECT_TRUE(capture.lines().empty());
    EXPECT_TRUE(Property::set("a", "2"));
    EXPECT_EQ(valueOf("a"), "2");
    Property::reload();
}

TEST(Property, SetsInMemoryOnly) {
    const PropertyFile file("a=1\n");
    EXPECT_TRUE(Property::set("a", "2"));
    EXPECT_EQ(valueOf("a"), "2");
    EXPECT_TRUE(Property::set("a", ""));
    EXPECT_EQ(valueOf("a"), "default");
    EXPECT_EQ(file.content(), "a=1\n");
}

TEST(Property, RefusesValuesOfMoreThan91CharactersAndAnEmptyKey) {
    const PropertyFile file;
    EXPECT_TRUE(Property::set("a", std::string(91, 'x')));
    EXPECT_FALSE(Property::set("a", std::string(92, 'y')));
    EXPECT_EQ(valueOf("a"), std::string(91, 'x'));
    EXPECT_FALSE(Property::set("", "value"));
}

TEST(Property, LeavesLongerValuesOfTheFileOutWithAWarning) {
    const PropertyFile file;
    LogCapture capture;
    file.rewrite("fits=" + std::string(91, 'x') + "\nlong=" + std::string(92, 'y') + "\n");
    EXPECT_EQ(valueOf("fits"), std::string(91, 'x'));
    EXPECT_EQ(valueOf("long"), "default");
    EXPECT_EQ(capture.count("property long left out: its value has more than 91 characters."), 1);
    EXPECT_EQ(capture.lines().size(), 1U);
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

TEST(Property, GivesWholeValuesWhileOtherThreadsSetAndReload) {
    const std::string one(91, '1');
    const std::string two(91, '2');
    const PropertyFile file("key=" + one + "\n");
    std::vector<std::thread> writers;
    for (int i = 0; i < 2; ++i) {
        writers.emplace_back([&] {
            for (int turn = 0; turn < 200; ++turn) {
                Property::set("key", two);
                Property::reload();
            }
        });
    }
    for (int turn = 0; turn < 2000; ++turn) {
        const std::string value = valueOf("key");
        EXPECT_TRUE(value == one || value == two) << value;
    }
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(valueOf("key"), one);
}

}  // namespace
}  // namespace vyn
