// SPDX-License-Identifier: Apache-2.0

#include <vyn/archive.h>

#include "common/archive_items.h"
#include "support/support.h"

namespace vyn::testing {
namespace {

TEST(Archive, ReadsTheWholeRecordsOfABlockBehindWhatItHoldsAndTellsOfOthers) {
    const struct {
        const char *hex, *items;
        bool isWhole;
    } blocks[] = {
        {"0300000061620003000000010203", "616200|010203|", true},
        {"00000000020000007800", "|7800|", true},
        {"0100000041FFFFFFFF", "41|", true},
        {"0100000041FFFFFFFF41", "41|", false},
        {"FDFFFFFF010203040506", "", false},
    };
    for (const auto& [hex, items, isWhole] : blocks) {
        LogCapture log;
        Buffer block;
        block.fromHexString(hex);
        Archive archive;
        archive.put("!", 1);
        EXPECT_EQ(archive.putSerializeData(block.data, block.size), isWhole) << hex;
        EXPECT_EQ(archive.ok(), isWhole) << hex;
        EXPECT_EQ(log.count("record of "), isWhole ? 0 : 1) << hex;
        std::string read;
        for (Buffer item; !archive.empty(); read += item.toHexString() + "|") archive >> item;
        EXPECT_EQ(read, std::string("21|") + items) << hex;
    }
    EXPECT_TRUE(Archive(nullptr, 100).empty());
}

TEST(Archive, GetsNoMoreThanTheTargetTakesAndNothingWithoutAnItem) {
    Archive archive;
    std::string text = "....";
    archive >> text << Buffer() << static_cast<const char*>(nullptr) >> text >> text;
    EXPECT_EQ(text, "....") << "an empty item leaves it, too";
    for (const int size : {2, 4}) {
        archive.get(text.data(), size);
        archive.put("123", 3);
        archive.get(text.data(), size);
        EXPECT_EQ(text, size == 2 ? "12.." : "123.");
    }
    for (int size = 1; size < 40; ++size) {
        const std::string bytes = "0123456789abcdefghijklmnopqrstuvwxyz????";
        Buffer item;
        archive.put(bytes.data(), size);
        archive >> item;
        EXPECT_EQ(std::string(item.data, static_cast<size_t>(item.size)),
                  bytes.substr(0, size_t(size)));
    }
    archive << "passed over";
    archive.get(nullptr, 5);
    EXPECT_TRUE(archive.empty());
}

// One copy of all items is instant; one for each item would move a terabyte.
TEST(Archive, StaysInOrderWhileManyItemsComeAndGoAndGivesTheirMemoryBack) {
    Archive archive;
    for (int i = 0, taken = -1, next = 0; i < 1000000; ++i) {
        archive.put(&i, sizeof i);
        if (i % 4 != 0) continue;
        archive.get(&taken, sizeof taken);
        ASSERT_EQ(taken, next++);
    }
    Buffer flat;
    archive.copyTo(flat);
    EXPECT_EQ(flat.size, 750000 * 8);
    detail::ArchiveRoom room;
    ArchiveItems items(room);
    items.add(flat.data, 1000000);
    items.add("abc", 3);
    items.takeFirst([](const auto& item) { EXPECT_EQ(item.size, 1000000); });
    EXPECT_LT(items.capacity(), 1000u);
    items.takeFirst([](const auto& item) { EXPECT_EQ(std::string(item.bytes, 3), "abc"); });
}

struct Named : Serializer {
    void serialize(Archive& archive) override { archive << name; }
    void deserialize(Archive& archive) override { archive >> name >> missing; }
    std::string name, missing = "kept";
};

TEST(Serializer, LoadsWhatItSavedKeepsTheOtherFieldsAndTellsOfADamagedEnd) {
    Named saved, loaded;
    saved.name = "pump";
    Buffer flat("replaced");
    saved.saveTo(flat);
    EXPECT_TRUE(loaded.loadFrom(flat));
    flat.append("\1\0\0\0", 5);
    flat.append("\2\0\0\0x", 5);
    EXPECT_FALSE(loaded.loadFrom(flat));
    EXPECT_EQ(loaded.name + loaded.missing, "pump");
}

}  // namespace
}  // namespace vyn::testing
