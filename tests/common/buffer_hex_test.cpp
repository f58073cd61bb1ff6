#include <gtest/gtest.h>
#include <vyn/buffer.h>

#include <cstdio>

namespace vyn {
namespace {

// Decodes `hex` pair by pair with scanf.
std::string scanned(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.length(); i += 2) {
        unsigned value = 0;
        std::sscanf(hex.c_str() + i, "%02X", &value);
        bytes += static_cast<char>(value);
    }
    return bytes;
}

std::string decoded(const std::string& hex) {
    Buffer buffer("old");
    buffer.fromHexString(hex);
    return buffer.isEmpty() ? "" : std::string(buffer.data, buffer.data + buffer.size);
}

TEST(BufferHex, WritesTwoUpperCaseDigitsForEachByte) {
    EXPECT_EQ(Buffer("\x0a\xff", 2).toHexString(), "0AFF");
    EXPECT_EQ(Buffer().toHexString(), "");
    EXPECT_EQ(Buffer("abc", -3).toHexString(), "");
}

TEST(BufferHex, ReadsWhatItWrites) {
    std::string all;
    for (int value = 0; value < 256; ++value) all += static_cast<char>(value);
    EXPECT_EQ(decoded(Buffer(all.data(), 256).toHexString()), all);
}

TEST(BufferHex, IgnoresAnOddLastCharacterAndReadsWhatIsNoNumberAsZero) {
    EXPECT_EQ(decoded("0AF"), "\x0a");
    EXPECT_EQ(decoded("zz"), std::string(1, '\0'));
    EXPECT_EQ(decoded("F"), "");
    EXPECT_EQ(decoded(""), "");
}

TEST(BufferHex, ReadsEveryPairAsScanfDoes) {
    for (int pair = 0; pair < 65536; ++pair) {
        const std::string start{static_cast<char>(pair >> 8), static_cast<char>(pair)};
        for (const char* tail : {"", "c", "5D", "\t7e", "-3x"}) {
            ASSERT_EQ(decoded(start + tail), scanned(start + tail)) << "pair " << pair << tail;
        }
    }
}

TEST(BufferHex, ReadsBlanksAsScanfDoes) {
    for (const std::string& text :
         {std::string("   12    34"), std::string("1 2 3 4 5"), std::string(" \n\v\f\r\t- 12"),
          std::string("0x1F 0x"), std::string(" \0 1122", 7), std::string("        ")}) {
        EXPECT_EQ(decoded(text), scanned(text)) << text;
    }
}

// Each pair alone would look through all the blanks behind it.
TEST(BufferHex, PassesALongRunOfBlanksOnce) {
    const std::string blanks(4 << 20, ' ');
    EXPECT_EQ(decoded(blanks + "7F").substr(0, 1), "\x7f");
}

}  // namespace
}  // namespace vyn
