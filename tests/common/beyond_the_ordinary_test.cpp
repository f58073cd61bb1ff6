// SPDX-License-Identifier: Apache-2.0

// Sizes, depths and arguments that only few callers ever use.

#include <sys/mount.h>
#include <sys/xattr.h>
#include <vyn/archive.h>
#include <vyn/helper.h>
#include <vyn/ini_config.h>
#include <vyn/xml_codec.h>

#include "common/archive_items.h"
#include "support/support.h"

namespace vyn::testing {
namespace {

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
    const std::string path = folder.write("settings", "");
    const auto name = [](int i) { return "user." + std::string(200, 'n') + std::to_string(i); };
    const std::string value(10000, 'v');
    // In memory, since file systems on disks have no room for so many.
    bool hasRoom = mount("vyn_test", folder.path().c_str(), "tmpfs", 0, "mode=755") == 0;
    folder.write("settings", "");
    for (int i = 0; i < 30; ++i) {
        const size_t size = i == 0 ? 10000 : 100;
        hasRoom = hasRoom && setxattr(path.c_str(), name(i).c_str(), value.data(), size, 0) == 0;
    }
    IniConfig(path).set("b", "2", true);
    for (int i = 0; i < 30 && hasRoom; ++i) {
        EXPECT_EQ(getxattr(path.c_str(), name(i).c_str(), nullptr, 0), i == 0 ? 10000 : 100) << i;
    }
    EXPECT_EQ(folder.read("settings"), "b=2\n");
    umount2(folder.path().c_str(), MNT_DETACH);
    if (!hasRoom) GTEST_SKIP() << "no file system for so many attributes can be mounted here";
}

TEST(BeyondTheOrdinary, HostPropertiesRefuseWhatADeviceRefuses) {
    const std::string longer(200, 'x');
    const PropertyFile file("a b=1\n=2\nbad=\xff\nro.long=" + longer + "\ngood=\u00e4\n");
    for (const std::string key : {"a b", "", "bad"}) EXPECT_EQ(Property::get(key, "no"), "no");
    EXPECT_EQ(Property::get("good", ""), "\u00e4");
    EXPECT_EQ(Property::get("ro.long", ""), longer);
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
    items.add(std::string(1000000, 'x').data(), 1000000);
    items.add("abc", 3);
    items.takeFirst([](const auto& item) { EXPECT_EQ(item.size, 1000000); });
    EXPECT_LT(items.capacity(), 1000u);
    items.takeFirst([](const auto& item) { EXPECT_EQ(std::string(item.bytes, 3), "abc"); });
    EXPECT_TRUE(items.empty());
}

TEST(BeyondTheOrdinary, ArgumentsAreBorneThatFewCallersPass) {
    Strings pieces{"a long enough piece,and another one,c"};
    EXPECT_EQ(helper::split(pieces[0], pieces, ','), 3);
    EXPECT_EQ(pieces, (Strings{"a long enough piece", "and another one", "c"}));
    const Message message = Message::obtain(10, 11, 12, nullptr);
    std::ostringstream stream;
    stream << std::hex << message << 255;
    EXPECT_EQ(stream.str().rfind("Message {what: 10, name: (noname), arg1: 11, arg2: 12", 0), 0u);
    EXPECT_EQ(stream.str().substr(stream.str().size() - 3), "}ff");
    Archive archive;
    archive << "a"
            << "b";
    archive.get(nullptr, 5);
    archive >> pieces[0];
    EXPECT_EQ(pieces[0], "b");
}

}  // namespace
}  // namespace vyn::testing
