#include <gtest/gtest.h>
#include <vyn/buffer.h>

#include <climits>
#include <cstddef>
#include <new>
#include <utility>

#include "support/fatal_capture.h"

namespace vyn {
namespace {

using testing::FatalCapture;

using Words = std::array<int32_t, 3>;

// The bytes of a buffer, NULs included.
std::string bytesOf(const Buffer& buffer) {
    EXPECT_EQ(buffer.data == nullptr, buffer.size < 1);
    return buffer.data == nullptr ? "" : std::string(buffer.data, buffer.data + buffer.size);
}

std::string withNul(const std::string& text) { return text + '\0'; }

Buffer bytes(const std::string& text) { return {text.data(), static_cast<int>(text.size())}; }

Buffer marked(const std::string& text, const Words& words) {
    Buffer buffer = bytes(text);
    buffer.words = words;
    return buffer;
}

TEST(Buffer, IsThreeWordsASizeAndABlock) {
    EXPECT_EQ(offsetof(Buffer, words), 0u);
    EXPECT_EQ(offsetof(Buffer, size), 12u);
    EXPECT_EQ(offsetof(Buffer, data), 16u);
    EXPECT_EQ(sizeof(Buffer), 16 + sizeof(char*));
}

TEST(Buffer, IsMadeFromBytesFillAndText) {
    EXPECT_EQ(bytesOf(Buffer()), "");
    EXPECT_EQ(bytesOf(Buffer("xyz", 2)), "xy");
    EXPECT_EQ(bytesOf(Buffer(3, 'c')), "ccc");
    EXPECT_EQ(bytesOf(Buffer("ab")), withNul("ab"));
    EXPECT_EQ(bytesOf(Buffer(std::string("a\0b", 3))), withNul(std::string("a\0b", 3)));
    EXPECT_EQ(Buffer(1, 'c').words, Words{});
}

TEST(Buffer, KeepsANegativeSizeWithoutABlock) {
    EXPECT_EQ(Buffer("abc", -3).size, -3);
    EXPECT_EQ(Buffer(-2, 'c').size, -2);
    Buffer assigned("abc");
    assigned.assign("abc", -3);
    EXPECT_EQ(assigned.size, -3);
    EXPECT_TRUE(assigned.isEmpty());

    Buffer grown("abc", -3);
    EXPECT_EQ(bytesOf(Buffer(grown)), "");
    grown.append("xy", 2);
    EXPECT_EQ(bytesOf(grown), "xy");
}

TEST(Buffer, TakesANullSourceForNoBytes) {
    const char* none = nullptr;
    EXPECT_EQ(Buffer(none, 0).size, 0);
    EXPECT_EQ(Buffer(none, 5).size, 0);
    EXPECT_EQ(Buffer(none).size, 0);
    Buffer buffer("ab", 2);
    buffer.append(none);
    buffer.append(none, 4);
    buffer.insert_before(0, none, 4);
    buffer.insert_before(0, none);
    buffer.append(Buffer());
    buffer = static_cast<const Buffer*>(nullptr);
    EXPECT_EQ(bytesOf(buffer), "ab");
    buffer.assign(none, 4);
    EXPECT_EQ(buffer.size, 0);
    EXPECT_TRUE(buffer.isEmpty());
}

TEST(Buffer, MadeFromTheEmptyStringHoldsItsNul) {
    Buffer buffer("");
    EXPECT_EQ(bytesOf(buffer), withNul(""));
    EXPECT_FALSE(buffer.isEmpty());
    EXPECT_EQ(buffer.std_string(), "");
    EXPECT_EQ(buffer.size, 1);
}

TEST(Buffer, CopiesWithItsWords) {
    const Buffer source = marked("abc", {1, 2, 3});
    const Buffer made(source);
    Buffer copied("old");
    copied.copy(source);
    for (const Buffer* buffer : {&made, &std::as_const(copied)}) {
        EXPECT_EQ(bytesOf(*buffer), "abc");
        EXPECT_EQ(buffer->words, (Words{1, 2, 3}));
        EXPECT_NE(buffer->data, source.data);
    }
    EXPECT_EQ(bytesOf(source), "abc");
}

// Moves `source` in one of the three ways.
using Mover = void (*)(Buffer& target, const Buffer& source);
class BufferMove : public ::testing::TestWithParam<Mover> {};

TEST_P(BufferMove, TakesTheBlockAndEmptiesTheConstSource) {
    const Buffer source = marked("abc", {1, 2, 3});
    const char* block = source.data;
    Buffer target = marked("old", {7, 8, 9});
    GetParam()(target, source);
    EXPECT_EQ(bytesOf(target), "abc");
    EXPECT_EQ(target.data, block);
    EXPECT_EQ(target.words, (Words{1, 2, 3}));
    EXPECT_EQ(bytesOf(source), "");
    EXPECT_EQ(source.size, 0);
    EXPECT_EQ(source.words, (Words{1, 2, 3}));
}

TEST_P(BufferMove, ToItselfLeavesItEmpty) {
    Buffer buffer = marked("abc", {1, 2, 3});
    GetParam()(buffer, buffer);
    EXPECT_EQ(buffer.size, 0);
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_EQ(buffer.words, (Words{1, 2, 3}));
}

INSTANTIATE_TEST_SUITE_P(
    EveryWay, BufferMove,
    ::testing::Values([](Buffer& target, const Buffer& source) { target = source; },
                      [](Buffer& target, const Buffer& source) { target = &source; },
                      [](Buffer& target, const Buffer& source) {
                          EXPECT_EQ(target.move(source), 0);
                      }),
    [](const auto& parameter) { return "Way" + std::to_string(parameter.index); });

TEST(Buffer, AssignReplacesTheContentAndKeepsTheWords) {
    Buffer buffer = marked("old", {1, 2, 3});
    buffer.assign("xyz", 2);
    EXPECT_EQ(bytesOf(buffer), "xy");
    buffer.assign(3, 'c');
    EXPECT_EQ(bytesOf(buffer), "ccc");
    buffer.assign("ab");
    EXPECT_EQ(bytesOf(buffer), withNul("ab"));
    buffer.assign(std::string("c"));
    EXPECT_EQ(bytesOf(buffer), withNul("c"));
    buffer.assign("c", 0);
    EXPECT_EQ(bytesOf(buffer), "");
    EXPECT_EQ(buffer.words, (Words{1, 2, 3}));
}

TEST(Buffer, AppendAddsStringsWithTheirNul) {
    Buffer buffer("x");
    buffer.append("ab");
    EXPECT_EQ(bytesOf(buffer), withNul(withNul("x") + "ab"));
    EXPECT_EQ(buffer.std_string(), "x");

    Buffer other;
    other.append(std::string("s"));
    other.append('\0');
    other.append("xyz", 2);
    other.append("xyz", 0);
    other.append("xyz", -1);
    other.append(bytes("end"));
    EXPECT_EQ(bytesOf(other), std::string("s\0\0xyend", 8));
}

TEST(Buffer, InsertsBeforeAPositionBroughtIntoRange) {
    Buffer buffer("bc", 2);
    buffer.insert_before(-7, 'a');
    buffer.insert_before(1000, 'e');
    buffer.insert_before(3, "dxx", 1);
    EXPECT_EQ(bytesOf(buffer), "abcde");
    buffer.insert_before(1, std::string("S"));
    buffer.insert_before(0, bytes("BB"));
    buffer.insert_before(INT_MAX, "T");
    buffer.insert_before(INT_MIN, "none", 0);
    EXPECT_EQ(bytesOf(buffer), std::string("BBaS\0bcdeT\0", 11));
}

TEST(Buffer, TakesBytesOfItsOwn) {
    Buffer buffer = bytes("abc");
    buffer.append(buffer);
    EXPECT_EQ(bytesOf(buffer), "abcabc");
    buffer.insert_before(1, buffer.data + 2, 2);
    EXPECT_EQ(bytesOf(buffer), "acabcabc");
    buffer.assign(buffer.data + 2, 3);
    EXPECT_EQ(bytesOf(buffer), "abc");
    buffer.copy(buffer);
    EXPECT_EQ(bytesOf(buffer), "abc");
}

TEST(Buffer, ThrowsWhenItWouldOutgrowItsSize) {
    Buffer buffer = bytes("abc");
    buffer.size = INT_MAX;
    EXPECT_THROW(buffer.append('d'), std::bad_alloc);
    EXPECT_THROW(buffer.insert_before(0, "abc", INT_MAX), std::bad_alloc);
    buffer.size = 3;
    EXPECT_EQ(bytesOf(buffer), "abc");
}

TEST(Buffer, ErasesFromTheFrontInPlace) {
    Buffer buffer = bytes("abcdef");
    const char* block = buffer.data;
    buffer.erase_before(0);
    buffer.erase_before(-4);
    EXPECT_EQ(bytesOf(buffer), "abcdef");
    buffer.erase_before(4);
    EXPECT_EQ(bytesOf(buffer), "ef");
    EXPECT_EQ(buffer.data, block);
}

TEST(Buffer, IsEmptyWhenAllIsErased) {
    for (int surplus : {0, 5, INT_MAX - 3}) {
        Buffer buffer = bytes("abc");
        buffer.erase_before(3 + surplus);
        EXPECT_EQ(buffer.size, 0);
        EXPECT_TRUE(buffer.isEmpty());
    }
}

TEST(Buffer, StrLengthStaysInsideABlockWithoutNul) {
    EXPECT_EQ(Buffer().str_length(), 0);
    EXPECT_EQ(Buffer("ab").str_length(), 2);
    const Buffer unended(4, 'x');
    EXPECT_EQ(unended.str_length(), 4);
}

TEST(Buffer, StdStringEndsTheContentWithANul) {
    Buffer unended = bytes("ab");
    EXPECT_EQ(unended.std_string(), "ab");
    EXPECT_EQ(bytesOf(unended), withNul("ab"));
    EXPECT_EQ(unended.std_string(), "ab");
    EXPECT_EQ(unended.size, 3);
    for (int size : {0, -3}) {
        Buffer empty("", size);
        EXPECT_EQ(empty.std_string(), "");
        EXPECT_EQ(bytesOf(empty), withNul(""));
    }
}

TEST(Buffer, EqualsATextOnlyWithItsNul) {
    EXPECT_TRUE(Buffer("ab") == "ab");
    EXPECT_TRUE(Buffer("") == "");
    EXPECT_FALSE(Buffer() == "");
    EXPECT_FALSE(bytes("ab") == "ab");
    EXPECT_FALSE(bytes("abc") == "ab");
    EXPECT_FALSE(Buffer("ax") == "ab");
    EXPECT_TRUE(Buffer(std::string("a\0b", 3)) == std::string("a\0c", 3));
}

TEST(Buffer, CountsNegativeIndicesFromTheEnd) {
    FatalCapture fatal;
    Buffer buffer = bytes("abc");
    buffer.at(-1) = 'z';
    buffer[-3] = 'x';
    const Buffer& constant = buffer;
    EXPECT_EQ(bytesOf(buffer), "xbz");
    EXPECT_EQ(constant[2], 'z');
    EXPECT_EQ(constant[-3], 'x');
    EXPECT_TRUE(fatal.lines().empty());
}

TEST(Buffer, IndicesOutOfRangeAreFatal) {
    FatalCapture fatal;
    // The block is larger than the content, so that the references may be formed.
    Buffer buffer = bytes("abcdefgh");
    buffer.erase_before(4);
    EXPECT_EQ(&buffer.at(4), buffer.data + 4);
    EXPECT_EQ(&buffer[5], buffer.data + 5);
    EXPECT_EQ(fatal.count(" (at)]  \033[1;31mFATAL: invalid range."), 2);

    const Buffer& constant = buffer;
    EXPECT_EQ(constant[4], 0);
    EXPECT_EQ(constant[-5], 0);
    EXPECT_EQ(constant[INT_MIN], 0);
    const std::string text =
        " (operator[])]  \033[1;31mFATAL: array access violation, size = 4, access = ";
    EXPECT_EQ(fatal.count(text + "4"), 1);
    EXPECT_EQ(fatal.count(text + "-5"), 1);
    EXPECT_EQ(fatal.lines().size(), 5u);
}

TEST(Buffer, FindsTheFirstOfASetOrANul) {
    const Buffer buffer = bytes(std::string("ab\0:c", 5));
    EXPECT_EQ(buffer.find_first_of(":", 0), 2);
    EXPECT_EQ(buffer.find_first_of(":", 3), 3);
    EXPECT_EQ(buffer.find_first_of("ba", 0), 0);
    EXPECT_EQ(buffer.find_first_of("x", 3), -1);
    EXPECT_EQ(buffer.find_first_of("c", 5), -1);
    EXPECT_EQ(buffer.find_first_of("c", INT_MAX), -1);
    EXPECT_EQ(Buffer().find_first_of("c", 0), -1);
}

}  // namespace
}  // namespace vyn
