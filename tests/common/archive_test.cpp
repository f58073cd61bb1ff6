// SPDX-License-Identifier: Apache-2.0

#include <vyn/archive.h>

#include "support/support.h"

namespace vyn::testing {
namespace {

TEST(Archive, ReadsTheWholeRecordsOfABlockBehindWhatItHolds) {
    const struct {
        const char *hex, *items;
        int errors;
    } blocks[] = {
        {"0300000061620003000000010203", "616200|010203|", 0},
        {"00000000020000007800", "|7800|", 0},
        {"02000000780000000000", "7800|", 0},  // an empty item at the end is lost
        {"0100000041FFFFFFFF", "41|", 0},
        {"01000000410200000041", "41|", 1},
        {"0100000041FFFFFFFF41", "41|", 1},
        {"FDFFFFFF010203040506", "", 1},
    };
    for (const auto& [hex, items, errors] : blocks) {
        LogCapture log;
        Buffer block;
        block.fromHexString(hex);
        Archive archive;
        archive.put("!", 1);
        archive.putSerializeData(block.data, block.size);
        std::string read;
        for (Buffer item; !archive.empty(); read += item.toHexString() + "|") archive >> item;
        EXPECT_EQ(read, std::string("21|") + items) << hex;
        EXPECT_EQ(log.count("record of "), errors) << hex;
    }
    EXPECT_TRUE(Archive(nullptr, 100).empty());
}

TEST(Archive, GetsNoMoreThanTheTargetTakesAndNothingWithoutAnItem) {
    Archive archive;
    std::string text = "....";
    archive >> text << Buffer() >> text;
    EXPECT_EQ(text, "....") << "an empty item leaves it, too";
    for (const int size : {2, 4}) {
        archive.get(text.data(), size);
        archive.put("123", 3);
        archive.get(text.data(), size);
        EXPECT_EQ(text, size == 2 ? "12.." : "123.");
    }
}

// One copy of all items is instant; one for each item would move a terabyte.
TEST(Archive, StaysInOrderWhileManyItemsComeAndGo) {
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
}

TEST(Archive, WarnsOfAnItemOfMoreThan100MiBAndWritesIt) {
    LogCapture log;
    constexpr int kLimit = 104857600;
    Archive archive;
    archive << Buffer(kLimit, 'x') << Buffer(kLimit + 1, 'x');
    Buffer flat;
    archive.copyTo(flat);
    EXPECT_EQ(flat.size, 2 * kLimit + 9);
    EXPECT_EQ(log.texts(), Strings{"len is abnormal, len = 104857601"});
}

struct Named : Serializer {
    void serialize(Archive& archive) override { archive << name; }
    void deserialize(Archive& archive) override { archive >> name >> missing; }
    std::string name, missing = "kept";
};

TEST(Serializer, LoadsWhatItSavedAndKeepsTheOtherFields) {
    Named saved, loaded;
    saved.name = "pump";
    Buffer flat("replaced");
    saved.saveTo(flat);
    loaded.loadFrom(flat);
    EXPECT_EQ(loaded.name + loaded.missing, "pumpkept");
}

}  // namespace
}  // namespace vyn::testing
