// SPDX-License-Identifier: Apache-2.0

#include <vyn/buffer.h>

#include <algorithm>
#include <climits>

#include "support/support.h"

namespace vyn::testing {
namespace {

// The bytes of a buffer, with a bar for each NUL.
std::string shown(const Buffer& buffer) {
    EXPECT_EQ(buffer.data == nullptr, buffer.size < 1);
    std::string text;
    for (int i = 0; i < buffer.size; ++i) text += buffer.data[i] == '\0' ? '|' : buffer.data[i];
    return text;
}

Buffer marked(const std::string& text) {
    Buffer buffer(text.data(), static_cast<int>(text.size()));
    buffer.words = {1, 2, 3};
    return buffer;
}

TEST(Buffer, IsMadeFromAndAssignedBytesFillsAndTextsWithTheirNul) {
    Buffer buffer = marked("old");
    buffer.assign(3, 'c');
    EXPECT_EQ(shown(buffer) + shown(Buffer(-2, 'c')) + shown(Buffer("ab")), "cccab|");
    buffer.assign(std::string("a\0b", 3));
    EXPECT_EQ(shown(buffer) + shown(Buffer("")), "a|b||");
    EXPECT_EQ(buffer.words[2], 3);
    const char* none = nullptr;
    EXPECT_EQ(Buffer(none, 5).size + Buffer(none).size, 0);
    Buffer negative("abc", -3);
    EXPECT_EQ(negative.size, -3) << "which stays";
    negative.append("xy", 2);
    negative.append(none);
    negative.append("z", -1);
    EXPECT_EQ(shown(negative), "xy");
}

TEST(Buffer, IsCopiedOrMovedWithItsWordsFromAConstSource) {
    const Buffer source = marked("abc");
    const char* const block = source.data;
    Buffer copied("old"), assigned("old"), taken;
    copied.copy(source);
    assigned = source;
    taken = &assigned;
    EXPECT_EQ(shown(source) + shown(assigned), "");
    EXPECT_EQ(taken.data, block);
    for (const Buffer& buffer : {Buffer(copied), copied, taken}) {
        EXPECT_EQ(shown(buffer), "abc");
        EXPECT_EQ(buffer.words[2], 3);
    }
    EXPECT_EQ(taken.move(taken), 0);
    EXPECT_EQ(shown(taken), "") << "moved to itself";

    std::vector<Buffer> many;
    for (const char* text : {"c", "a", "b"}) many.emplace_back(text);
    const char* const kept = many[0].data;
    many.reserve(100);
    EXPECT_EQ(many[0].data, kept) << "moved, not copied";
    std::sort(many.begin(), many.end());
    EXPECT_EQ(many, (std::vector<Buffer>{Buffer("a"), Buffer("b"), Buffer("c")}));
}

TEST(Buffer, GrowsAnywhereAndErasesFromTheFrontInPlace) {
    Buffer buffer("bc", 2);
    buffer.insert_before(-7, 'a');
    buffer.insert_before(1000, 'e');
    buffer.insert_before(3, "dxx", 1);
    buffer.insert_before(1, std::string("S"));
    buffer.insert_before(INT_MAX, "T");
    EXPECT_EQ(shown(buffer), "aS|bcdeT|");
    buffer.assign(buffer.data + 3, 2);
    buffer.append(buffer);
    buffer.insert_before(1, buffer.data + 2, 2);
    EXPECT_EQ(shown(buffer), "bbccbc") << "bytes of its own";
    buffer.append(std::string("s"));
    const char* const block = buffer.data;
    for (const int count : {-4, 4}) buffer.erase_before(count);
    EXPECT_EQ(shown(buffer), "bcs|");
    EXPECT_EQ(buffer.data, block);
    buffer.size = INT_MAX;
    EXPECT_THROW(buffer.append('d'), std::bad_alloc);
    buffer.size = 4;
    buffer.erase_before(4);
    EXPECT_EQ(shown(buffer), "");
}

TEST(Buffer, IsATextUpToANulOrItsEnd) {
    Buffer unended = marked("ab");
    EXPECT_FALSE(unended == "ab");
    for (int i = 0; i < 2; ++i) EXPECT_EQ(unended.std_string(), "ab");
    EXPECT_EQ(shown(unended), "ab|") << "the NUL is added, once";
    EXPECT_TRUE(unended == "ab");
    EXPECT_FALSE(unended == "ax" || Buffer() == "");
    const Buffer lines = marked(std::string("ab\0:c", 5));
    const std::vector<int> found{lines.find_first_of("ba", 0), lines.find_first_of(":", 0),
                                 lines.find_first_of(":", 3), lines.find_first_of("c", INT_MAX)};
    EXPECT_EQ(found, (std::vector<int>{0, 2, 3, -1}));
}

TEST(Buffer, CountsNegativeIndicesFromTheEndAndRefusesThoseOutOfRange) {
    FatalCapture fatal;
    // The block is larger than the content, so that the references may be formed.
    Buffer buffer = marked("12345abc");
    buffer.erase_before(5);
    const Buffer& constant = buffer;
    buffer.at(-1) = 'z';
    EXPECT_EQ(constant[2] + buffer[-3], 'z' + 'a');
    EXPECT_TRUE(fatal.lines().empty());
    EXPECT_EQ(&buffer.at(3), buffer.data + 3);
    EXPECT_EQ(fatal.count("FATAL: invalid range."), 1);
    for (const int index : {3, -4, INT_MIN}) EXPECT_EQ(constant[index], 0);
    EXPECT_EQ(fatal.count("FATAL: array access violation, size = 3, access = "), 3);
}

TEST(BufferHex, WritesTwoDigitsForEachByteAndReadsEveryPairAsScanfDoes) {
    EXPECT_EQ(Buffer("\x0a\xff", 2).toHexString() + Buffer("abc", -3).toHexString(), "0AFF");
    Buffer read("old");
    for (int pair = 0; pair < 65536; ++pair) {
        const std::string start{static_cast<char>(pair >> 8), static_cast<char>(pair)};
        for (const char* tail : {"", "c", "\t7e", " \n\v\f\r- 12"}) {
            const std::string hex = start + tail;
            std::string scanned;
            for (size_t i = 0; i + 1 < hex.length(); i += 2) {
                unsigned value = 0;
                std::sscanf(hex.c_str() + i, "%02X", &value);
                scanned += value == 0 ? '|' : static_cast<char>(value);
            }
            read.fromHexString(hex);
            ASSERT_EQ(shown(read), scanned) << "pair " << pair << tail;
        }
    }
    // Each pair alone would look through all the blanks behind it.
    read.fromHexString(std::string(4 << 20, ' ') + "7F");
    EXPECT_EQ(read[0], '\x7f');
}

TEST(Buffer, IsStreamedWithItsFirstSixteenBytesAndDumpedWithLongRunsOfZerosShortened) {
    std::ostringstream stream;
    stream << Buffer() << Buffer(" !\"#$~\x7f\xff", 8) << 255 << Buffer(16, '%');
    config::debug::setDEBUG_BUF(true);
    stream << Buffer(17, '%');
    config::debug::setDEBUG_BUF(false);
    EXPECT_EQ(stream.str(),
              "NULLBuffer(8 bytes): {  21\" 23$~ 7f ff}ffBuffer(16 bytes): {%%%%%%%%%%%%%%%%...}"
              "Buffer(17 bytes): {%%%%%%%%%%%%%%%%%}");
    LogCapture log;
    for (const int size : {48, 49})
        dump(std::string(static_cast<size_t>(size), '\0').data(), size, "f", "f", 9, "");
    EXPECT_EQ(log.count(":  00 * 3 lines"), 1);
}

}  // namespace
}  // namespace vyn::testing
