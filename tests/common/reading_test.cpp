// SPDX-License-Identifier: Apache-2.0

// What tells whether data was read, and reads it in the form that is wanted.

#include <vyn/archive.h>
#include <vyn/condition.h>
#include <vyn/digest.h>
#include <vyn/file_utils.h>
#include <vyn/helper.h>
#include <vyn/ini_config.h>
#include <vyn/xml_codec.h>

#include <cfloat>

#include "support/support.h"

namespace vyn::testing {
namespace {

// Whether archives take it; numbers are to be refused by the compiler.
template <typename Value, typename = void>
struct IsTaken : std::false_type {};
template <typename Value>
struct IsTaken<Value, std::void_t<decltype(std::declval<Archive&>() << std::declval<Value>())>>
    : std::true_type {};
static_assert(IsTaken<const char*>::value && IsTaken<std::string>::value && IsTaken<Buffer>::value);
static_assert(!IsTaken<int>::value && !IsTaken<char>::value && !IsTaken<std::nullptr_t>::value);
static_assert(std::is_nothrow_move_constructible_v<Buffer>);

TEST(Reading, OfSettingsIsToldAndNothingUnreadIsSavedOver) {
    const TemporaryFolder folder;
    LogCapture log;
    IniConfig missing(folder / "settings");
    EXPECT_FALSE(missing.ok());
    EXPECT_TRUE(missing.set("a", "1", true)) << "a file is made";
    EXPECT_TRUE(IniConfig(folder / "settings").ok());
    mkdir((folder / "folder").c_str(), 0700);
    IniConfig unread(folder / "folder");
    EXPECT_FALSE(unread.ok());
    EXPECT_FALSE(unread.set("a", "1", true));
    EXPECT_EQ(log.count("folder could not be read, so it is not saved: entries would be lost."), 1);
    EXPECT_TRUE(unread.load(folder / "settings"));
    EXPECT_TRUE(unread.remove("a", true));
    EXPECT_EQ(folder.read("settings"), "");
}

TEST(Reading, OfSettingsAsValuesWarnsOnceOfWhatIsOfNoUse) {
    const TemporaryFolder folder;
    LogCapture log;
    const IniConfig config(
        folder.write("settings", "i=12\nd=-1.5e3\nb=yes\nl=5000000000\nx=1x\nempty=\n"));
    EXPECT_EQ(config.keys(), (Strings{"b", "d", "empty", "i", "l", "x"}));
    EXPECT_EQ(config.getInt("i", 0, 1, 12), 12);
    EXPECT_EQ(config.getDouble("d", 0), -1500);
    EXPECT_TRUE(config.getBool("b", false));
    EXPECT_EQ(config.getInt64("l", 0), 5000000000);
    EXPECT_EQ(config.getInt("empty", 3), 3);
    EXPECT_TRUE(log.lines().empty());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(config.getInt("i", 7, 0, 11), 7);
        EXPECT_EQ(config.getInt("l", 7), 7);
        EXPECT_EQ(config.getDouble("x", 7), 7);
    }
    EXPECT_EQ(log.count("settings i: \"12\" is of no use, taking \"7\"."), 1);
    EXPECT_EQ(log.lines().size(), 3u);
}

template <typename Number>
void expectSame(Number number, bool isAnInt) {
    XmlCodec codec;
    codec.enter("e", true);
    codec.put("n", number);
    codec.put("n", number);
    XmlCodec read(codec.text());
    read.enter("e", false);
    Number same{};
    int narrow = 0;
    EXPECT_TRUE(read.get("n", same));
    EXPECT_EQ(same, number);
    EXPECT_EQ(read.get("n", narrow), isAnInt) << codec.text();
}

TEST(Reading, OfXmlGivesEveryNumberThatWasWritten) {
    expectSame(INT64_MIN, false);
    expectSame(UINT64_MAX, false);
    expectSame(true, true);
    expectSame<short>(-5, true);
    for (const double number : {0.1, -1.0 / 3, DBL_MAX, DBL_MIN, 1e22}) expectSame(number, false);
    XmlCodec codec;
    codec.enter("e", true);
    codec.put("c", 'x');
    codec.put("s", "text");
    const Buffer constant("\1", 1);
    codec.put("b", constant);
    EXPECT_EQ(codec.text(), "<e c=\"120\" s=\"text\" b=\"01\"/>\n\n");
}

TEST(Reading, OfXmlWalksOverChildrenAndTellsTheirText) {
    XmlCodec codec("<a>one<b x='1' y='2'>two<!-- --> three<c/></b><![CDATA[<four>]]><d/></a>");
    codec.enter("a", false);
    EXPECT_EQ(codec.getText(), "one<four>");
    std::string seen;
    codec.forEachChild([&](const std::string& name) {
        seen += name + ":" + codec.getText() + ";" + helper::implode(codec.attributes(), ",");
        codec.forEachChild([&](const std::string& inner) { seen += "(" + inner + ")"; });
    });
    EXPECT_EQ(seen, "b:two three;x,y(c)d:;");
    EXPECT_EQ(codec.name(), "a");
    codec.forEachChild([&](const std::string&) { codec.enter("lost", false); });
    EXPECT_FALSE(codec.ok());
}

TEST(Reading, OfXmlFindsWhatWasWrittenUnderNamesThatCanBeRead) {
    LogCapture log;
    XmlCodec codec;
    codec.enter("e", true);
    for (const std::string name : {"", "a b", "a=", "a/", "!a", "a>", "a?"})
        codec.put(name, "lost");
    for (const std::string name : {"", "a b", "a/", "!a", "a>", "a?"}) {
        codec.enter(name, true);
        codec.put("lost", 1);
        codec.enter("lost", true);
        codec.leave();
        codec.leave();
    }
    codec.put("\u00e4'", "kept");
    codec.putText("a < b");
    codec.leave();
    EXPECT_EQ(codec.text(), "<e \u00e4'=\"kept\">a &lt; b</e>\n\n");
    EXPECT_EQ(log.count("can not be read again, what it stands for is not written."), 13);
    EXPECT_TRUE(XmlCodec(codec.text()).ok());
}

struct Text : Serializer {
    void serialize(Archive& archive) override { archive << text; }
    void deserialize(Archive& archive) override { archive >> text; }
    std::string text;
};

TEST(Reading, OfAnArchiveTellsWhetherItsBlockIsWhole) {
    Archive archive("\2\0\0\0a\0\2\0\0\0b", 11);
    EXPECT_FALSE(archive.ok());
    EXPECT_TRUE(archive.putSerializeData("\1\0\0\0b", 5));
    EXPECT_FALSE(archive.ok());
    archive.clear();
    EXPECT_TRUE(archive.ok());
    Text object;
    EXPECT_FALSE(object.loadFrom(Buffer("\2\0\0\0a\0\3\0\0\0b", 11)));
    EXPECT_EQ(object.text, "a");
    archive << static_cast<const char*>(nullptr) << "c";
    std::string second = "unchanged";
    archive >> second >> second;
    EXPECT_EQ(second, "c");
}

TEST(Reading, OfFilesGoesToTheEndWhateverTheirSize) {
    Buffer content;
    EXPECT_GT(readToEnd("/proc/self/status", content), 100);
    EXPECT_EQ(content.bytes().substr(0, 5), "Name:");
    Pipe pipe;
    std::thread writer([&] {
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(write(pipe.writeEnd(), std::string(5000, 'x').data(), 5000), 5000);
        }
        pipe.closeWriteEnd();
    });
    fcntl(pipe.readEnd(), F_SETFL, O_NONBLOCK);
    EXPECT_EQ(readToEnd(pipe.readEnd(), content), 250000);
    writer.join();
    EXPECT_EQ(readToEnd("/", content), -EISDIR);
    EXPECT_EQ(content.size, 250000) << "as it was";
}

TEST(Reading, InPiecesGivesTheSumsOfTheWhole) {
    const std::string data(70000, 'x');
    helper::Crc32 crc;
    helper::Md5 md5;
    for (size_t at = 0, piece = 0; at < data.size(); at += piece++) {
        piece = std::min(piece, data.size() - at);
        crc.add(data.data() + at, piece);
        md5.add(data.data() + at, piece);
        const int size = static_cast<int>(at + piece);
        EXPECT_EQ(crc.value(), helper::crc32(data.data(), size));
        EXPECT_EQ(md5.text(), helper::md5sum(data.data(), size));
    }
}

TEST(Reading, OfBuffersInContainersComparesTheirBytes) {
    std::vector<Buffer> buffers;
    for (const char* text : {"c", "a", "b"}) buffers.emplace_back(text);
    const char* const block = buffers[0].data;
    buffers.reserve(100);
    EXPECT_EQ(buffers[0].data, block) << "moved, not copied";
    std::sort(buffers.begin(), buffers.end());
    const Buffer& first = buffers[0];
    EXPECT_EQ(first, Buffer("a"));
    EXPECT_NE(first, buffers[1]);
    EXPECT_EQ(Buffer("a\0b", 3).bytes(), std::string_view("a\0b", 3));
    EXPECT_EQ(first.std_string(), "a");
}

TEST(Waiting, EndsWhenItsPredicateHoldsOrItsTimeHasPassed) {
    Condition condition;
    bool isReady = false;
    std::thread other([&] {
        Condition::Holder holder(condition);
        isReady = true;
        condition.broadcast();
    });
    {
        Condition::Holder holder(condition);
        EXPECT_EQ(condition.wait([&] { return isReady; }), 0);
        EXPECT_TRUE(condition.wait(60000, [&] { return isReady; }));
        const int64_t start = helper::ntick();
        EXPECT_FALSE(condition.wait(20, [] { return false; }));
        EXPECT_EQ(condition.waitMonotonic(20), ETIMEDOUT);
        EXPECT_GE(helper::ntick() - start, 40000000);
    }
    other.join();
}

}  // namespace
}  // namespace vyn::testing
