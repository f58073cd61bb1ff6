// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

// Verbose lines of this file are left out by the compiler.
#define VYN_LOG_FLOOR 4
#include <vyn/logging.h>

#include "support/support.h"

extern "C" void logFromC(int number);

namespace vyn::testing {
namespace {

struct FunctionPrinter : logging::LogPrinter, logging::DetailedLogPrinter {
    using Work = std::function<void(const logging::LogRecord* record)>;
    explicit FunctionPrinter(Work toDo) : work(std::move(toDo)) {}
    ~FunctionPrinter() override {
        logging::setLoggingPrinter(nullptr);
        logging::setDetailedLoggingPrinter(nullptr);
    }
    void print(const std::string&) override { work(nullptr); }
    void print(const logging::LogRecord& record) override { work(&record); }

    Work work;
};

TEST(Printers, GetALineInItsParts) {
    LogCapture beside;
    int line = 0;
    FunctionPrinter printer([&](const logging::LogRecord* record) {
        EXPECT_EQ(record->level, logging::kLevelInfo);
        EXPECT_STREQ(record->tag, "VYNCore");
        EXPECT_EQ(record->file, "printers_test.cpp");
        EXPECT_EQ(record->function, "TestBody");
        EXPECT_EQ(record->text, "\033[1mbold\033[m");
        EXPECT_EQ(record->threadId, logging::currentThreadId());
        line = record->line;
    });
    logging::setLogPrintLevel(logging::kLevelInfo);
    logging::setDetailedLoggingPrinter(&printer);
    ::testing::internal::CaptureStderr();
    VYN_LOG_INFO << "\033[1mbold\033[m \n";
    EXPECT_EQ(line, __LINE__ - 1);
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(written.find("(TestBody)]  bold\n"), std::string::npos) << "no terminal, no colours";
    EXPECT_EQ(beside.count("\033[1mbold\033[m"), 1);
}

TEST(Printers, AreLeftByAllThreadsWhenTheyAreRemoved) {
    std::atomic<bool> ends{false};
    std::thread logger([&] {
        while (!ends) VYN_LOG_DEBUG << "line";
    });
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> inside{0}, entered{0};
        FunctionPrinter printer([&](const logging::LogRecord*) {
            ++inside;
            ++entered;
            std::this_thread::yield();
            --inside;
        });
        logging::setLoggingPrinter(&printer);
        EXPECT_TRUE(waitUntil([&] { return entered > 0; }));
        logging::setLoggingPrinter(nullptr);
        ASSERT_EQ(inside, 0);
    }
    ends = true;
    logger.join();
}

TEST(Printers, RemoveThemselvesAlsoWhenTwoThreadsAreInThem) {
    std::atomic<int> inside{0};
    FunctionPrinter printer([&](const logging::LogRecord*) {
        ++inside;
        EXPECT_TRUE(waitUntil([&] { return inside == 2; }));
        logging::setLoggingPrinter(nullptr);
    });
    logging::setLoggingPrinter(&printer);
    const auto log = [] { VYN_LOG_DEBUG << "line"; };
    std::thread other(log);
    log();
    other.join();
    EXPECT_EQ(inside, 2);
}

// A printer for whose work there is no memory.
TEST(Printers, LoseALineWhereThereIsNoMemory) {
    FunctionPrinter printer([](const logging::LogRecord*) { throw std::bad_alloc(); });
    logging::setLoggingPrinter(&printer);
    ::testing::internal::CaptureStderr();
    VYN_LOG_ERROR << "line";
    EXPECT_NE(::testing::internal::GetCapturedStderr().find("out of memory, a log line is lost."),
              std::string::npos);
}

TEST(Lines, AreWrittenUnderConditionsNowAndThenAndDownToTheFloor) {
    LogCapture log;
    static int64_t start = 0;  // later in each repetition, as clocks go
    ManualClock clock(start += 1000);
    for (int i = 0; i < 4; ++i) {
        VYN_LOG_IF(logging::kLevelInfo, i == 2) << "only " << i;
        VYN_LOG_EVERY_MS(logging::kLevelInfo, 100) << "now " << i;
        VYN_LOG_VERBOSE << "never";
        clock.advance(50);
    }
    logFromC(7);
    EXPECT_EQ(log.texts(), (Strings{"now 0", "only 2", "now 2", "from C: 7"}));
}

TEST(Checks, ShowBothValuesOfAComparisonThatDoesNotHold) {
    FatalCapture fatal;
    enum class Colour { kRed, kBlue };
    const size_t size = 3;
    int looks = 0;
    VYN_CHECK_EQ(size, 4 + looks++) << "in the cellar";
    VYN_CHECK_LT(-1, size);
    VYN_CHECK_GT(std::string("a"), "b");
    VYN_CHECK_NE(Colour::kBlue, Colour::kBlue);
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(fatal.lines().size(), 3u);
    EXPECT_EQ(fatal.count("Check failed. (size == 4 + looks++) (3 vs. 4) in the cellar"), 1);
    EXPECT_EQ(fatal.count("Check failed. (std::string(\"a\") > \"b\") (a vs. b)"), 1);
    EXPECT_EQ(fatal.count("Check failed. (Colour::kBlue != Colour::kBlue) (1 vs. 1)"), 1);
}

}  // namespace
}  // namespace vyn::testing
