#include <gtest/gtest.h>
#include <vyn/ini_config.h>

#include <sstream>

#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace vyn {
namespace {

using testing::LogCapture;
using testing::TemporaryFolder;

std::string dumpOf(const IniConfig& config) {
    std::ostringstream text;
    text << config;
    return text.str();
}

// The entries that a file of this content gives.
std::string parsed(const std::string& content) {
    TemporaryFolder folder;
    return dumpOf(IniConfig(folder.write("settings", content)));
}

TEST(IniConfig, ReadsEntriesAndSkipsCommentsAndOtherLines) {
    EXPECT_EQ(parsed("key = value\n#x=1\n \t # y=2\nplain text\n[section]\n\n"), "key=value\n");
}

TEST(IniConfig, DropsBlanksAroundKeysAndValuesOnly) {
    EXPECT_EQ(parsed("\t a b \v=\f c  d \r\n"), "a b=c  d\n");
    EXPECT_EQ(parsed("a=1 # no comment\n"), "a=1 # no comment\n");
}

TEST(IniConfig, SplitsAtTheFirstEqualsSign) {
    EXPECT_EQ(parsed("a==b\n"), "a==b\n");
    EXPECT_EQ(parsed("=x\n"), "=x\n");
    EXPECT_EQ(parsed("a=\n = \n"), "=\na=\n");
    EXPECT_EQ(parsed("a=b=c#d\n"), "a=b=c#d\n");
}

TEST(IniConfig, KeepsTheLastOfSeveralValues) { EXPECT_EQ(parsed("a=1\nb=0\na=2\n"), "a=2\nb=0\n"); }

TEST(IniConfig, IgnoresTextBehindTheLastLineFeed) {
    EXPECT_EQ(parsed("a=1\nb=2"), "a=1\n");
    EXPECT_EQ(parsed("a=1"), "");
    EXPECT_EQ(parsed("a=1\rb=2\n"), "a=1\rb=2\n");
}

TEST(IniConfig, TellsWhatItHolds) {
    IniConfig config;
    config.set("", "empty key", false);
    config.set("a", "", false);
    EXPECT_EQ(config.get("a", "default"), "");
    EXPECT_EQ(config.get("", "default"), "empty key");
    EXPECT_EQ(config.get("b", "default"), "default");
    EXPECT_TRUE(config.exist("a"));
    EXPECT_FALSE(config.exist("b")) << "asking for a value does not make one";
}

TEST(IniConfig, DumpsInTheOrderOfTheKeysBytes) {
    IniConfig config;
    for (const std::string key : {"b", "a", "\xc3\xa4", "B", "a1"}) config.set(key, "1", false);
    EXPECT_EQ(dumpOf(config), "B=1\na=1\na1=1\nb=1\n\xc3\xa4=1\n");
}

TEST(IniConfig, LoadsOverTheEntriesItHas) {
    TemporaryFolder folder;
    IniConfig config;
    config.set("a", "old", false);
    config.set("b", "old", false);
    config.load(folder.write("settings", "b=new\nc=new\n"));
    EXPECT_EQ(dumpOf(config), "a=old\nb=new\nc=new\n");
}

TEST(IniConfig, KeepsItsEntriesWhenTheFileIsEmptyOrMissing) {
    LogCapture capture;
    TemporaryFolder folder;
    IniConfig config;
    config.set("a", "1", false);
    config.load(folder.write("empty", ""));
    EXPECT_TRUE(capture.lines().empty());
    config.load(folder / "missing");
    EXPECT_EQ(capture.count("stat fail."), 1);
    EXPECT_EQ(dumpOf(config), "a=1\n");
    EXPECT_TRUE(config.save());
    EXPECT_EQ(folder.read("missing"), "a=1\n") << "written to the path last loaded";
}

}  // namespace
}  // namespace vyn
