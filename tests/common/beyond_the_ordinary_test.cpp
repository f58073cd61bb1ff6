// Sizes, depths and arguments that only few callers ever use.

#include <sys/mount.h>
#include <sys/xattr.h>
#include <vyn/archive.h>
#include <vyn/helper.h>
#include <vyn/ini_config.h>
#include <vyn/xml_codec.h>

#include "common/archive_items.h"
#include "support/support.h"

namespace vyn {
namespace {

using testing::LogCapture;
using testing::TemporaryFolder;

TEST(BeyondTheOrdinary, SavesUnderANameThatLeavesNoRoomForAnother) {
    TemporaryFolder folder;
    std::string umlauts;
    while (umlauts.size() < 250) umlauts += "\u00e4";
    for (const std::string& name : {std::string(255, 'x'), umlauts}) {
        IniConfig(folder / name).set("a", "1", true);
        EXPECT_EQ(folder.read(name), "a=1\n");
    }
    EXPECT_EQ(folder.entries(), 2);
}

TEST(BeyondTheOrdinary, SavingKeepsManyAndLongAttributes) {
    TemporaryFolder folder;
    if (mount("vyn_test", folder.path().c_str(), "tmpfs", 0, "mode=755") != 0) {
        GTEST_SKIP() << "file systems cannot be mounted here";
    }
    const std::string path = folder.write("settings", "a=1\n");
    const auto name = [](int i) { return "user." + std::string(200, 'n') + std::to_string(i); };
    const std::string value(10000, 'v');
    int set = 0;
    while (set < 30 &&
           setxattr(path.c_str(), name(set).c_str(), value.data(), value.size() / 10, 0) == 0)
        ++set;
    setxattr(path.c_str(), name(0).c_str(), value.data(), value.size(), 0);
    IniConfig(path).set("b", "2", true);
    std::string kept(20000, '\0');
    for (int i = 0; i < set; ++i) {
        const ssize_t size = getxattr(path.c_str(), name(i).c_str(), kept.data(), kept.size());
        EXPECT_EQ(size, i == 0 ? 10000 : 1000) << i;
    }
    EXPECT_EQ(folder.read("settings"), "a=1\nb=2\n");
    EXPECT_EQ(umount2(folder.path().c_str(), MNT_DETACH), 0);
    if (set < 30) GTEST_SKIP() << "this kernel keeps no attributes in memory";
}

TEST(BeyondTheOrdinary, HostPropertiesRefuseWhatADeviceRefuses) {
    const testing::PropertyFile file("a b=1\n=2\nbad=\xff\nro.long=" + std::string(200, 'x') +
                                     "\ngood=\u00e4\n");
    EXPECT_EQ(Property::get("a b", "none"), "none");
    EXPECT_EQ(Property::get("", "none"), "none");
    EXPECT_EQ(Property::get("bad", "none"), "none");
    EXPECT_EQ(Property::get("good", "none"), "\u00e4");
    EXPECT_EQ(Property::get("ro.long", ""), std::string(200, 'x'));
    for (const std::string key : {".a", "a.", "a..b", "a/b", "\u00e4", "a=b"}) {
        EXPECT_FALSE(Property::set(key, "1")) << key;
    }
    EXPECT_FALSE(Property::set(std::string("a\0b", 3), "1"));
    EXPECT_TRUE(Property::set("a-b@c:d_e.F9", "1"));
    // Cut off, longer than needed, half of a pair, beyond the last character, a NUL.
    for (const std::string value : {"\xc3", "\xe2\x82", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80",
                                    "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\x80"}) {
        EXPECT_FALSE(Property::set("key", value)) << value;
    }
    EXPECT_FALSE(Property::set("key", std::string("a\0b", 3)));
    for (const std::string value : {"\xed\x9f\xbf", "\xee\x80\x80", "\xf4\x8f\xbf\xbf", "\x7f"}) {
        EXPECT_TRUE(Property::set("key", value)) << value;
    }
}

// The text of so many elements, each inside of the one before.
std::string nested(int levels) {
    XmlCodec codec;
    for (int i = 0; i < levels; ++i) codec.enter("e", true);
    codec.put("a", 1);
    return codec.text();
}

TEST(BeyondTheOrdinary, XmlIsWrittenAsDeepAsItIsRead) {
    LogCapture log;
    XmlCodec deepest(nested(256));
    EXPECT_TRUE(deepest.has("e"));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(nested(257), "");
    EXPECT_EQ(nested(100000), "");
    EXPECT_EQ(log.count("XML is nested deeper than 256 levels, it is not written."), 2);
}

TEST(BeyondTheOrdinary, AnArchiveGivesTheMemoryOfTakenItemsBack) {
    ArchiveItems items;
    const std::string large(1000000, 'x');
    items.add(large.data(), 1000000);
    items.add("abc", 3);
    std::string read;
    const auto take = [&] {
        items.takeFirst([&](const auto& item) { read.assign(item.bytes, item.bytes + item.size); });
    };
    take();
    EXPECT_EQ(read, large);
    EXPECT_LT(items.capacity(), 1000u);
    take();
    EXPECT_EQ(read, "abc");
    EXPECT_TRUE(items.empty());
}

TEST(BeyondTheOrdinary, ArgumentsAreBorneThatFewCallersPass) {
    std::vector<std::string> pieces{"a long enough piece,and another one,c"};
    EXPECT_EQ(helper::split(pieces[0], pieces, ','), 3);
    EXPECT_EQ(pieces, (std::vector<std::string>{"a long enough piece", "and another one", "c"}));
    const Message message = Message::obtain(10, 11, 12, nullptr);
    std::ostringstream stream;
    stream << std::hex << message << 255;
    EXPECT_EQ(stream.str().rfind("Message {what: 10, name: (noname), arg1: 11, arg2: 12", 0), 0u);
    EXPECT_EQ(stream.str().substr(stream.str().size() - 3), "}ff");
    Archive archive;
    archive << std::string("a") << std::string("b");
    archive.get(nullptr, 5);
    archive >> pieces[0];
    EXPECT_EQ(pieces[0], "b");
}

}  // namespace
}  // namespace vyn
