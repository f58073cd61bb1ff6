#include <gtest/gtest.h>
#include <vyn/archive.h>
#include <vyn/logging.h>

#include <climits>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "support/archive_block.h"
#include "support/log_capture.h"

namespace vyn {
namespace {

using testing::LogCapture;

std::string hexOf(const Archive& archive) {
    Buffer flat;
    archive.copyTo(flat);
    return flat.toHexString();
}

// Adds the items of a block given in hex.
void read(Archive& archive, const std::string& hex) {
    Buffer flat;
    flat.fromHexString(hex);
    archive.putSerializeData(flat.data, flat.size);
}

int drain(Archive& archive) {
    int count = 0;
    for (Buffer item; !archive.empty(); ++count) archive >> item;
    return count;
}

TEST(Archive, FlattensItemsIntoRecordsAndRebuildsThem) {
    Archive written;
    written << std::string("ab");
    written.put("\1\2\3", 3);
    EXPECT_EQ(hexOf(written),
              "03000000616200"
              "03000000010203");
    EXPECT_FALSE(written.empty()) << "copyTo keeps the items";

    Buffer flat;
    written.copyTo(flat);
    Archive archive(flat.data, flat.size);
    std::string text;
    Buffer bytes;
    archive >> text >> bytes;
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(bytes.toHexString(), "010203");
    EXPECT_TRUE(archive.empty());
}

TEST(Archive, FlattensToNothingWhenItIsEmpty) {
    Buffer flat("old");
    Archive().copyTo(flat);
    EXPECT_EQ(flat.size, 0);
    EXPECT_TRUE(flat.isEmpty());
    EXPECT_TRUE(Archive(flat.data, flat.size).empty());
}

TEST(Archive, LosesAnEmptyItemOnlyAtTheEnd) {
    Archive written;
    written << Buffer();
    EXPECT_EQ(hexOf(written), "00000000");
    written << std::string("x");
    EXPECT_EQ(hexOf(written), "00000000020000007800");

    Archive lost, kept;
    read(lost, "00000000");
    EXPECT_TRUE(lost.empty());
    read(kept, "00000000020000007800");
    std::string text = "unchanged";
    kept >> text;
    EXPECT_EQ(text, "unchanged") << "an item without bytes";
    kept >> text;
    EXPECT_EQ(text, "x");
}

TEST(Archive, AppendsTheItemsOfABlockBehindThoseItHolds) {
    Archive archive;
    archive << std::string("first");
    read(archive,
         "0100000041"
         "0000");
    std::string text;
    archive >> text >> text;
    EXPECT_EQ(text, "A") << "an item without a NUL ends with its bytes";
    EXPECT_TRUE(archive.empty());
}

TEST(Archive, GetsNoMoreThanTheTargetTakesAndDropsTheRest) {
    Archive archive;
    for (int i = 0; i < 3; ++i) archive.put("12345", 5);
    char target[9] = "........";
    archive.get(target, 2);
    EXPECT_STREQ(target, "12......");
    archive.get(target, 8);
    EXPECT_STREQ(target, "12345...");
    archive.get(target, -1);
    EXPECT_TRUE(archive.empty());
    archive.get(target, 8);
    EXPECT_STREQ(target, "12345...");
}

TEST(Archive, StaysInOrderWhileItemsComeAndGo) {
    std::minstd_rand random(20);
    std::deque<std::string> expected;
    Archive archive;
    for (int i = 0; i < 20000; ++i) {
        if (random() % 200 < (i < 10000 ? 110 : 95)) {
            expected.emplace_back(random() % 50, static_cast<char>('a' + i % 26));
            archive.put(expected.back().data(), static_cast<int>(expected.back().size()));
        } else if (!expected.empty()) {
            char taken[50] = {};
            archive.get(taken, sizeof taken);
            ASSERT_EQ(taken, expected.front()) << i;
            expected.pop_front();
        }
        ASSERT_EQ(archive.empty(), expected.empty()) << i;
    }
}

TEST(Archive, LeavesTargetsAsTheyAreWhenThereIsNoItem) {
    Archive archive;
    std::string text = "text";
    Buffer bytes("bytes");
    archive >> text >> bytes;
    EXPECT_EQ(text, "text");
    EXPECT_TRUE(bytes == "bytes");
}

TEST(Archive, EndsReadingAtARecordThatIsNotInsideTheBlock) {
    const std::string good = "0100000041";
    for (const std::string bad :
         {"0200000041", "FFFFFFFF41", "FFFFFF7F41", "0000008041", "FDFFFFFF010203040506"}) {
        LogCapture capture;
        Archive archive;
        read(archive, good + bad);
        EXPECT_EQ(drain(archive), 1) << bad;
        EXPECT_EQ(capture.count("record of "), 1) << bad;
    }
}

TEST(Archive, ReadsWithoutErrorUpToFewerThanFiveBytesAtTheEnd) {
    LogCapture capture;
    for (const std::string rest : {"", "FF", "FFFF", "FFFFFF", "FFFFFFFF"}) {
        Archive archive;
        read(archive, "0100000041" + rest);
        EXPECT_EQ(drain(archive), 1) << rest;
    }
    EXPECT_TRUE(Archive(nullptr, 100).empty());
    EXPECT_TRUE(Archive("\1", -100).empty());
    EXPECT_TRUE(capture.lines().empty());
}

// A block cut anywhere gives the items that are whole in it.
TEST(Archive, ReadsTheWholeItemsOfATruncatedBlock) {
    Archive written;
    for (int i = 0; i < 4; ++i) written << std::string("item");
    Buffer flat;
    written.copyTo(flat);
    LogCapture capture;
    for (int size = 0; size <= flat.size; ++size) {
        // A block of exactly this size, so that a read beyond it is a fault.
        const Buffer part(flat.data, size);
        Archive archive(part.data, part.size);
        EXPECT_EQ(drain(archive), size / 9) << size;
    }
}

// A block of a few records, most of them sound, with some bytes changed or cut off; or plain noise.
std::string damagedBlock(std::minstd_rand& random) {
    const auto below = [&random](uint32_t limit) {
        return static_cast<uint32_t>(random() % limit);
    };
    std::string block;
    const bool isNoise = below(8) == 0;
    for (uint32_t records = below(4); records > 0; --records) {
        const auto length = static_cast<char>(below(10));
        block += {length, 0, 0, 0};
        block.append(static_cast<size_t>(length), 'x');
    }
    for (char& byte : block) {
        if (isNoise || below(32) == 0) byte = static_cast<char>(random() >> 8);
    }
    if (below(3) == 0) block.resize(below(static_cast<uint32_t>(block.size()) + 1));
    return block;
}

TEST(Archive, ReadsExactlyTheWholeRecordsOfDamagedBlocks) {
    const LogCapture restoringTheLevel;
    logging::setLogLevel(0);  // nearly every other block gives an error line
    std::minstd_rand random(20240229);
    int damaged = 0;
    for (int i = 0; i < 1000000; ++i) {
        const std::string made = damagedBlock(random);
        // A block of exactly this size, so that a read beyond it is a fault.
        const Buffer block(made.data(), static_cast<int>(made.size()));
        const size_t readable = testing::readableBytes(block.data, made.size());
        damaged += readable + 4 < made.size();
        Buffer flat;
        Archive(block.data, block.size).copyTo(flat);
        ASSERT_EQ(static_cast<size_t>(flat.size), readable) << i;
        ASSERT_TRUE(readable == 0 || std::memcmp(flat.data, block.data, readable) == 0) << i;
    }
    EXPECT_GT(damaged, 100000);
    EXPECT_LT(damaged, 900000);
}

TEST(Archive, BringsRandomItemsBackAlsoThroughHexText) {
    std::mt19937 random(4711);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> items(random() % 20);
        Archive written;
        for (std::string& item : items) {
            item.resize(1 + random() % 300);
            for (char& byte : item) byte = static_cast<char>(random());
            written.put(item.data(), static_cast<int>(item.size()));
        }
        Archive rebuilt;
        read(rebuilt, hexOf(written));
        for (const std::string& item : items) {
            Buffer got;
            rebuilt >> got;
            ASSERT_EQ(std::string(got.data, static_cast<size_t>(got.size)), item);
        }
        EXPECT_TRUE(rebuilt.empty());
    }
}

// With one allocation and one copy this is instant; with one for each item it would move a
// terabyte.
TEST(Archive, FlattensManyItemsInLinearTime) {
    constexpr int kItems = 1000000;
    Archive written;
    for (int i = 0; i < kItems; ++i) written.put(&i, sizeof i);
    Buffer flat;
    written.copyTo(flat);
    ASSERT_EQ(flat.size, kItems * 8);
    Archive archive(flat.data, flat.size);
    for (int i = 0, value = -1; i < kItems; ++i) {
        archive.get(&value, sizeof value);
        ASSERT_EQ(value, i);
    }
    EXPECT_TRUE(archive.empty());
}

TEST(Archive, WarnsOfAnItemOfMoreThan100MiBAndWritesIt) {
    LogCapture capture;
    constexpr int kLimit = 104857600;
    Archive archive;
    Buffer flat;
    archive << Buffer(kLimit, 'x');
    archive.copyTo(flat);
    EXPECT_TRUE(capture.lines().empty());
    archive.clear();
    archive << Buffer(kLimit + 1, 'x');
    archive.copyTo(flat);
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"len is abnormal, len = 104857601"});
    EXPECT_EQ(flat.size, kLimit + 5);
}

struct Settings : Serializer {
    std::string name = "none";
    int limit = 0;
    bool wide = false;

    void serialize(Archive& archive) override {
        archive << name;
        archive.put(&limit, sizeof limit);
        if (wide) archive << std::string("extra");
    }
    void deserialize(Archive& archive) override {
        archive >> name;
        archive.get(&limit, sizeof limit);
    }
};

TEST(Serializer, LoadsWhatItSaved) {
    Settings saved, loaded;
    saved.name = "pump";
    saved.limit = 7;
    saved.wide = true;
    Buffer flat("replaced");
    saved.saveTo(flat);
    loaded.loadFrom(flat);
    EXPECT_EQ(loaded.name, "pump");
    EXPECT_EQ(loaded.limit, 7);
}

TEST(Serializer, KeepsTheValuesOfFieldsThatWereNotSaved) {
    Archive archive;
    archive << std::string("old");
    Buffer flat;
    archive.copyTo(flat);
    Settings loaded;
    loaded.limit = 9;
    loaded.loadFrom(flat);
    EXPECT_EQ(loaded.name, "old");
    EXPECT_EQ(loaded.limit, 9);
}

}  // namespace
}  // namespace vyn
