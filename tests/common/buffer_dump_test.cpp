#include <gtest/gtest.h>
#include <vyn/buffer.h>
#include <vyn/config.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "support/log_capture.h"

namespace vyn {
namespace {

using testing::LogCapture;

std::string printed(const Buffer& buffer) {
    std::ostringstream stream;
    stream << buffer;
    return stream.str();
}

TEST(BufferStream, ShowsPrintableBytesAndTheRestInHexadecimal) {
    EXPECT_EQ(printed(Buffer("ab\0\nc", 5)), "Buffer(5 bytes): {ab 00 0ac}");
    EXPECT_EQ(printed(Buffer(" !\"#$~\x7f\xff", 8)), "Buffer(8 bytes): {  21\" 23$~ 7f ff}");
}

TEST(BufferStream, ShowsEmptyAndNegativeSizes) {
    EXPECT_EQ(printed(Buffer()), "NULL");
    EXPECT_EQ(printed(Buffer("abc", -3)), "Buffer(-3 bytes): {}");
}

TEST(BufferStream, LeavesTheBaseHexadecimalButItsOwnSizeDecimal) {
    std::ostringstream stream;
    stream << Buffer(12, '\n') << 255 << Buffer(12, 'x') << 255;
    EXPECT_EQ(stream.str(),
              "Buffer(12 bytes): { 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a}ff"
              "Buffer(12 bytes): {xxxxxxxxxxxx}ff");
}

TEST(BufferStream, StopsAfterSixteenBytesUnlessTheSwitchIsOn) {
    const std::string shown(16, 'x');
    EXPECT_EQ(printed(Buffer(15, 'x')), "Buffer(15 bytes): {" + std::string(15, 'x') + "}");
    EXPECT_EQ(printed(Buffer(16, 'x')), "Buffer(16 bytes): {" + shown + "...}");
    EXPECT_EQ(printed(Buffer(20, 'x')), "Buffer(20 bytes): {" + shown + "...}");
    config::debug::setDEBUG_BUF(true);
    EXPECT_EQ(printed(Buffer(20, 'x')), "Buffer(20 bytes): {" + shown + "xxxx}");
    config::debug::setDEBUG_BUF(false);
}

// The dumped lines behind their addresses, which are checked here.
std::vector<std::string> dumped(const std::string& block, std::vector<size_t> offsets) {
    LogCapture capture;
    dump(block.data(), static_cast<int>(block.size()), "dir/file.c", "run", 9, "unused");
    std::vector<std::string> lines = capture.texts();
    EXPECT_EQ(lines.size(), offsets.size());
    for (size_t i = 0; i < std::min(lines.size(), offsets.size()); ++i) {
        char address[32];
        std::snprintf(address, sizeof address, "%08" PRIxPTR ": ",
                      reinterpret_cast<uintptr_t>(block.data() + offsets[i]));
        EXPECT_EQ(lines[i].substr(0, std::strlen(address)), address);
        lines[i].erase(0, std::strlen(address));
    }
    return lines;
}

TEST(Dump, ShowsSixteenBytesALineInGroupsOfFour) {
    EXPECT_EQ(dumped("Az \"!#$~\x7f\xff" + std::string("456789abc"), {0, 16}),
              (std::vector<std::string>{
                  "41 7a 20 22  21 23 24 7e  7f ff 34 35  36 37 38 39  \tAz.\"..$~..456789",
                  "61 62 63                                            \tabc",
              }));
}

TEST(Dump, ShortensALongRunOfZeros) {
    const std::string block = std::string(16, 'x') + std::string(64, '\0') + "end";
    const std::vector<std::string> lines = dumped(block, {0, 16, 80});
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], " 00 * 4 lines");
    EXPECT_EQ(lines[2].substr(lines[2].find('\t')), "\tend");
}

TEST(Dump, ShortensFortyNineZerosButNotFortyEight) {
    EXPECT_EQ(dumped(std::string(48, '\0') + 'x', {0, 16, 32, 48}).size(), 4u);
    EXPECT_EQ(dumped(std::string(49, '\0') + 'x', {0, 48})[0], " 00 * 3 lines");
    EXPECT_EQ(dumped(std::string(79, '\0'), {0, 64})[0], " 00 * 4 lines");
    EXPECT_EQ(dumped(std::string(80, '\0'), {0})[0], " 00 * 5 lines");
}

TEST(Dump, NamesItsCallerUnderTheFixedTag) {
    LogCapture capture;
    ::testing::internal::CaptureStderr();
    dump("x", 1, "dir/file.c", "void ns::run(int)", 9, "mine");
    EXPECT_EQ(::testing::internal::GetCapturedStderr().substr(0, 5), "tag V");
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].substr(0, 20),
              "[file.c:9 (run)]  " + capture.texts()[0].substr(0, 2));
}

TEST(Dump, WritesNothingForNothingAndBelowItsLevel) {
    LogCapture capture;
    dump("x", 0, "f", "f", 1, "t");
    dump("x", -1, "f", "f", 1, "t");
    logging::setLogLevel(logging::kLevelDebug);
    dump("x", 1, "f", "f", 1, "t");
    EXPECT_TRUE(capture.lines().empty());
}

}  // namespace
}  // namespace vyn
