// SPDX-License-Identifier: Apache-2.0

#include <climits>
#include <iomanip>
#include <locale>

#include "support/support.h"

namespace logging {
namespace {

using vyn::testing::LogCapture;
using Texts = vyn::testing::Strings;

TEST(Line, StartsWithNothingOfTheOneBefore) {
    LogCapture log;
    const std::string longText(100000, 'x');
    VYN_LOG_INFO << std::hex << std::setfill('0') << std::setprecision(2) << 255 << std::setw(9);
    VYN_LOG_INFO << 255 << ' ' << 3.14159 << std::setw(3) << 7;
    VYN_LOG_INFO << static_cast<const char*>(nullptr) << "lost, as the stream has failed";
    VYN_LOG_INFO << longText;
    VYN_LOG_INFO << "back";
    EXPECT_EQ(log.texts(), (Texts{"ff", "255 3.14159  7", "", longText, "back"}));
}

// Leaves the stream without a buffer.
std::ostream& careless(std::ostream& stream) {
    stream.rdbuf(nullptr);
    return stream;
}

TEST(Line, UsesTheLocaleOfTheProgramAndSuffersFromNoOperandOfTheOneBefore) {
    struct Grouping : std::numpunct<char> {
        std::string do_grouping() const override { return "\3"; }
    };
    LogCapture log;
    VYN_LOG_INFO << 1000000 << careless;
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
    VYN_LOG_INFO << 1000000;
    std::locale::global(before);
    VYN_LOG_INFO << 1000000;
    EXPECT_EQ(log.texts(), (Texts{"1000000", "1,000,000", "1000000"}));
}

struct LastWords {
    ~LastWords() { VYN_LOG_INFO << "last words"; }
    void prepare() {}
};
thread_local LastWords tLastWords;

TEST(Line, MayBeWrittenUntilItsThreadHasEnded) {
    LogCapture log;
    std::thread([] {
        tLastWords.prepare();  // made before the thread's first line, so destroyed after it
        VYN_LOG_INFO << "first words";
    }).join();
    EXPECT_EQ(log.texts(), (Texts{"first words", "last words"}));
}

TEST(ScopeTracer, LogsEntryAndExitWithTheElapsedTimeOrOnlyASlowExit) {
    LogCapture log;
    {
        VYN_TRACE_SCOPE("load");
        for (const long threshold : {1L, LONG_MAX, LONG_MIN}) {
            VYN_TRACE_SLOW_SCOPE("slow", threshold);
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    }
    const Texts texts = log.texts();
    ASSERT_EQ(texts.size(), 4u);
    EXPECT_EQ(texts[0] + texts[1].substr(0, 10), "enter loadslow took ");
    int elapsed = -1;
    ASSERT_EQ(std::sscanf(texts[3].c_str(), "leave load, %d ms", &elapsed), 1);
    EXPECT_GE(elapsed, 9);
}

}  // namespace
}  // namespace logging
