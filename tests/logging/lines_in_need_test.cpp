// SPDX-License-Identifier: Apache-2.0

// Lines that are written where not all is as it should be.

#include <climits>

#include "support/support.h"

namespace {

using vyn::testing::LogCapture;

TEST(LinesInNeed, DoNotEndAProcessWhoseStandardErrorNobodyReads) {
    vyn::testing::Pipe pipe;
    const int former = dup(STDERR_FILENO);
    dup2(pipe.writeEnd(), STDERR_FILENO);
    pipe.closeReadEnd();
    LogCapture log;
    VYN_LOG_ERROR << "unread";
    logging::LogMessage("Tag", logging::kLevelError) << "unread";
    dup2(former, STDERR_FILENO);
    close(former);
    EXPECT_EQ(log.count("unread"), 2);
}

TEST(LinesInNeed, TakeNullTextsForEmptyOnes) {
    LogCapture log;
    VYN_LOG_TAGGED(nullptr, logging::kLevelInfo) << "tagged";
    logging::LogMessage(nullptr, nullptr, nullptr, 7, logging::kLevelInfo, false, true) << "bare";
    const char* const none = nullptr;
    logging_printf("file", "function", 1, logging::kLevelInfo, none);
    EXPECT_EQ(log.texts(), (vyn::testing::Strings{"tagged", "bare", ""}));
}

TEST(LinesInNeed, TellTheTimeOfAScopeAgainstAnyThreshold) {
    LogCapture log;
    for (const long threshold : {LONG_MAX, LONG_MIN}) {
        VYN_TRACE_SLOW_SCOPE("scope", threshold);
    }
    EXPECT_EQ(log.count("scope took"), 1);
}

// A printer for whose work there is no memory.
class FailingPrinter : public logging::LogPrinter {
  public:
    ~FailingPrinter() override { logging::setLoggingPrinter(nullptr); }
    void print(const std::string&) override { throw std::bad_alloc(); }
};

TEST(LinesInNeed, AreLostWhereThereIsNoMemory) {
    FailingPrinter printer;
    logging::setLoggingPrinter(&printer);
    ::testing::internal::CaptureStderr();
    VYN_LOG_ERROR << "line";
    logging::LogMessage("Tag", logging::kLevelError) << "line";
    const std::string written = ::testing::internal::GetCapturedStderr();
    const std::string mark = "out of memory, a log line is lost.";
    EXPECT_NE(written.find(mark), written.rfind(mark)) << written;
}

}  // namespace
