#include <gtest/gtest.h>
#include <vyn/logging.h>

#include <cerrno>
#include <iomanip>
#include <locale>
#include <thread>

#include "support/log_capture.h"

namespace logging {
namespace {

using vyn::testing::LogCapture;
using Texts = std::vector<std::string>;

TEST(Line, IsTheOneThatAMessageGives) {
    LogCapture capture;
    VYN_LOG_TAGGED("Tag", kLevelInfo) << " two  words \t \r\n";
    LogMessage("Tag", __FILE__, __PRETTY_FUNCTION__, __LINE__ - 1, kLevelInfo, false, true)
        << " two  words \t \r\n";
    ASSERT_EQ(capture.lines().size(), 2u);
    EXPECT_EQ(capture.lines()[0], capture.lines()[1]);
}

TEST(Line, StartsWithNothingOfTheOneBefore) {
    LogCapture capture;
    VYN_LOG_INFO << std::hex << std::setfill('0') << std::setprecision(2) << 255 << std::setw(9);
    VYN_LOG_INFO << 255 << ' ' << 3.14159 << std::setw(3) << 7;
    VYN_LOG_INFO << static_cast<const char*>(nullptr) << "lost, as the stream has failed";
    VYN_LOG_INFO << "back";
    EXPECT_EQ(capture.texts(), (Texts{"ff", "255 3.14159  7", "", "back"}));
}

int noisyValue() {
    VYN_LOG_INFO << "inner " << std::hex << 255;
    return 255;
}

TEST(Line, MayBeWrittenWhileTheOperandsOfAnotherAreEvaluated) {
    LogCapture capture;
    for (int i = 0; i < 2; ++i) VYN_LOG_INFO << "outer " << noisyValue() << "," << noisyValue();
    EXPECT_EQ(capture.texts(), (Texts{"inner ff", "inner ff", "outer 255,255", "inner ff",
                                      "inner ff", "outer 255,255"}));
}

// Prints its items with a separator behind each, and takes the last one back.
struct List {};
std::ostream& operator<<(std::ostream& stream, List) {
    stream << "one, two, ";
    EXPECT_GT(stream.tellp(), 0);
    return stream.seekp(-2, std::ios_base::cur) << '.';
}

TEST(Line, IsWrittenToItsEndWhenOperandsGoBackInIt) {
    LogCapture capture;
    VYN_LOG_INFO << "list: " << List();
    VYN_LOG_INFO << "next";
    EXPECT_EQ(capture.texts(), (Texts{"list: one, two.", "next"}));
}

TEST(Line, IsNotCutHoweverLongItIs) {
    LogCapture capture;
    const std::string longText(100000, 'x');
    VYN_LOG_INFO << longText;
    VYN_LOG_INFO << "short";
    EXPECT_EQ(capture.texts(), (Texts{longText, "short"}));
}

struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(Line, UsesTheLocaleOfTheProgram) {
    LogCapture capture;
    VYN_LOG_INFO << 1000000;
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
    VYN_LOG_INFO << 1000000;
    std::locale::global(before);
    VYN_LOG_INFO << 1000000;
    EXPECT_EQ(capture.texts(), (Texts{"1000000", "1'000'000", "1000000"}));
}

// Leaves its own locale behind, and the stream without a buffer.
struct Careless {};
std::ostream& operator<<(std::ostream& stream, Careless) {
    stream.imbue(std::locale(std::locale(), new Grouping));
    stream << 1000000;
    stream.rdbuf(nullptr);
    return stream;
}

TEST(Line, DoesNotSufferFromACarelessOperandOfTheOneBefore) {
    LogCapture capture;
    VYN_LOG_INFO << Careless();
    VYN_LOG_INFO << 1000000;
    EXPECT_EQ(capture.texts(), (Texts{"1'000'000", "1000000"}));
}

TEST(Line, IsFilteredOnceMoreWhenItIsComplete) {
    LogCapture capture;
    const auto lowered = [] {
        setLogLevel(kLevelError);
        return 1;
    };
    VYN_LOG_INFO << lowered();
    EXPECT_TRUE(capture.lines().empty());
}

struct LastWords {
    ~LastWords() { VYN_LOG_INFO << "last words"; }
    void prepare() {}
};
thread_local LastWords tLastWords;

TEST(Line, MayBeWrittenUntilItsThreadHasEnded) {
    LogCapture capture;
    std::thread([] {
        tLastWords.prepare();  // made before the thread's first line, so destroyed after it
        VYN_LOG_INFO << "first words";
    }).join();
    EXPECT_EQ(capture.texts(), (Texts{"first words", "last words"}));
}

}  // namespace
}  // namespace logging
