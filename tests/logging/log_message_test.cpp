// SPDX-License-Identifier: Apache-2.0

#include "support/support.h"

namespace logging {
namespace {

using vyn::testing::FatalCapture;
using vyn::testing::LogCapture;
using Texts = vyn::testing::Strings;

TEST(LogMessage, IsEvaluatedAndWrittenOnlyWhenItsLevelPasses) {
    LogCapture log;
    FatalCapture fatal;
    int evaluations = 0;
    VYN_LOG_VERBOSE << "verbose " << ++evaluations;
    setLogLevel(kLevelInfo);
    VYN_LOG_INFO << "info " << ++evaluations;
    VYN_LOG_DEBUG << ++evaluations;
    VYN_CHECK(evaluations == 2) << ++evaluations;
    LogMessage("Tag", "f", "f", 1, kLevelError, true, false) << "not enabled";
    EXPECT_EQ(log.texts(), (Texts{"verbose 1", "info 2"}));
    EXPECT_TRUE(fatal.lines().empty());
}

TEST(LogMessage, TellsErrnoAndLeavesItAsItWas) {
    struct Disturber : LogCapture {
        void print(const std::string& line) override {
            add(line);
            errno = EIO;
        }
    } disturber;
    errno = ENOENT;
    VYN_LOG_ERRNO_INFO << (errno = EIO, "stat fail.");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(disturber.texts(), Texts{"[2] No such file or directory. stat fail."});
    // No byte of the default locale stands for this character, which printf reports in errno.
    logging_printf("f", "f", 1, kLevelInfo, "%ls", L"\u4e2d");
    EXPECT_EQ(errno, ENOENT);
}

TEST(SystemLog, GetsEachLevelAtItsPriorityOrUpToThePrintLevelAsErrors) {
    const LogCapture restoresTheLevels;
    for (const int printLevel : {0, 4}) {
        setLogPrintLevel(printLevel);
        ::testing::internal::CaptureStderr();
        std::string letters;
        for (int level = 1; level <= 5; ++level) LogMessage("Tag", level) << "needle";
        std::istringstream lines(::testing::internal::GetCapturedStderr());
        for (std::string line; std::getline(lines, line);) letters += line.substr(0, 5);
        EXPECT_EQ(letters,
                  printLevel == 0 ? "Tag ETag WTag ITag DTag V" : "Tag ETag ETag ETag ETag V");
    }
}

TEST(SystemLog, DoesNotEndAProcessWhoseStandardErrorNobodyReads) {
    vyn::testing::Pipe pipe;
    const int former = dup(STDERR_FILENO);
    dup2(pipe.writeEnd(), STDERR_FILENO);
    pipe.closeReadEnd();
    LogCapture log;
    LogMessage("Tag", kLevelError) << "unread";
    dup2(former, STDERR_FILENO);
    close(former);
    EXPECT_EQ(log.count("unread"), 1);
}

TEST(LoggingPrintf, FormatsUnderItsOwnTagCutsTextAt4095CharactersAndTakesNullForNoText) {
    LogCapture log;
    ::testing::internal::CaptureStderr();
    logging_printf("dir/c.c", "run", 12, kLevelError, "%d of %s", 3, "five");
    EXPECT_EQ(::testing::internal::GetCapturedStderr().substr(0, 4), "CF E");
    logging_printf(nullptr, nullptr, 12, kLevelError, "%s", std::string(5000, 'x').c_str());
    const char* const none = nullptr;
    logging_printf("c.c", "run", 1, kLevelInfo, none);
    LogMessage(nullptr, nullptr, nullptr, 7, kLevelInfo, false, true) << "bare";
    EXPECT_EQ(log.lines()[0], "[c.c:12 (run)]  3 of five\033[m\n");
    EXPECT_EQ(log.texts(), (Texts{"3 of five", std::string(4095, 'x'), "", "bare"}));
}

TEST(Fatal, IsWrittenWhateverTheLevelAndThenReachesTheAborter) {
    LogCapture log;
    FatalCapture fatal;
    setLogLevel(0);
    VYN_LOG_FATAL << "no way on";
    const char* impl = nullptr;
    VYN_CHECK(impl != NULL) << "after " << 3;
    VYN_CHECK(impl == NULL);
    const auto checked = [](int size) {
        VYN_CHECK_OR_RETURN_VALUE(size > 0, -1);
        return size;
    };
    EXPECT_EQ(checked(0) + checked(2), 1);
    EXPECT_EQ(log.texts(), (Texts{"no way on", "Check failed. (impl != NULL) after 3",
                                  "Check failed. (size > 0)"}));
    EXPECT_EQ(log.lines(), fatal.lines());
}

TEST(FatalDeathTest, EndsTheProcessByDefault) {
    EXPECT_DEATH(VYN_CHECK(1 + 1 == 3), "Check failed. \\(1 \\+ 1 == 3\\)");
}

TEST(ThreadIdentity, BelongsToTheThread) {
    setThreadLoggingTag("mine");
    std::thread([] {
        EXPECT_EQ(getThreadLoggingTag(), nullptr);
        setThreadLoggingTag("theirs");
        setThreadName("a name that is far too long");
        EXPECT_EQ(getThreadName(), "a name that is ");
    }).join();
    EXPECT_STREQ(getThreadLoggingTag(), "mine");
}

}  // namespace
}  // namespace logging
