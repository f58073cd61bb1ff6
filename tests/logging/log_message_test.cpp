#include <gtest/gtest.h>
#include <vyn/logging.h>

#include <cerrno>
#include <cstdlib>
#include <thread>

#include "support/emulator.h"
#include "support/fatal_capture.h"
#include "support/log_capture.h"

namespace logging {
namespace {

using vyn::testing::FatalCapture;
using vyn::testing::LogCapture;
using vyn::testing::startDeathTestsAnew;

void logFrom(const char* file, const char* function, const char* text) {
    LogMessage("Tag", file, function, 7, kLevelInfo, false, true) << text;
}

TEST(LogMessage, IsOneLineWithItsSourcePositionAndAColourReset) {
    LogCapture capture;
    logFrom("src/io/pump.cpp", "int vyn::Pump::turn(bool)",
            "rate "
            "5");
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"[pump.cpp:7 (turn)]  rate 5\033[m\n"});
}

TEST(LogMessage, ShortensFileAndFunctionNames) {
    LogCapture capture;
    logFrom("a/b\\c.cpp", "main", "x");
    logFrom("c\\b/a.cpp", "void free_function(int, char*)", "x");
    logFrom("plain", "std::map<int, int> ns::f(int (*)(int))", "x");
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{
                                   "[c.cpp:7 (main)]  x\033[m\n",
                                   "[a.cpp:7 (free_function)]  x\033[m\n",
                                   "[plain:7 ((*))]  x\033[m\n",
                               }));
}

TEST(LogMessage, LosesTrailingBlanksAndLineEndsOnly) {
    LogCapture capture;
    logFrom("f", "f", " two  words \t \r\n \n");
    logFrom("f", "f", "\r\n ");
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{" two  words \t", ""}));
}

TEST(LogMessage, PassesAtTheCurrentLevelAndBelowIt) {
    LogCapture capture;
    VYN_LOG_VERBOSE << "before";
    setLogLevel(kLevelInfo);
    VYN_LOG_INFO << "info";
    VYN_LOG_DEBUG << "debug";
    LogMessage("Tag", kLevelVerbose) << "verbose";
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"before", "info"}));
}

TEST(LogMessage, EvaluatesItsOperandsOnlyWhenItPasses) {
    LogCapture capture;
    int evaluations = 0;
    setLogLevel(kLevelWarning);
    VYN_LOG_INFO << ++evaluations;
    VYN_CHECK(evaluations == 0) << ++evaluations;
    EXPECT_EQ(evaluations, 0);
    VYN_LOG_WARNING << ++evaluations;
    EXPECT_EQ(evaluations, 1);
}

TEST(LogMessage, WritesNothingWhenItIsNotEnabled) {
    LogCapture capture;
    FatalCapture fatal;
    LogMessage("Tag", "f", "f", 1, kLevelError, true, false) << "dropped";
    EXPECT_TRUE(capture.lines().empty());
    EXPECT_TRUE(fatal.lines().empty());
}

TEST(LogMessage, LeavesErrnoAsItWas) {
    struct Disturber : LogPrinter {
        void print(const std::string&) override { errno = EIO; }
    } disturber;
    setLoggingPrinter(&disturber);
    errno = ENOENT;
    VYN_LOG_INFO << "text";
    EXPECT_EQ(errno, ENOENT);
    // No byte of the default locale stands for this character, which printf reports in errno.
    logging_printf("f", "f", 1, kLevelInfo, "%ls", L"\u4e2d");
    EXPECT_EQ(errno, ENOENT);
    setLoggingPrinter(nullptr);
}

TEST(LogMessage, LogsSystemErrorsWithNumberAndText) {
    LogCapture capture;
    errno = ENOENT;
    VYN_LOG_ERRNO_INFO << "stat fail.";
    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{"[2] No such file or directory. stat fail."});
}

TEST(LogMessage, FormsOneStatementUnderAnUnbracedIf) {
    LogCapture capture;
    bool elseTaken = false;
    if (capture.lines().size() > 10)
        VYN_LOG_INFO << "not reached";
    else
        elseTaken = true;
    EXPECT_TRUE(elseTaken);
    EXPECT_TRUE(capture.lines().empty());
}

TEST(LogLevel, IsBroughtBackIntoRangeWhenAsked) {
    setLogLevel(0);
    EXPECT_EQ(getLogLevel(), 1);
    EXPECT_TRUE(passes(1));
    setLogLevel(9);
    EXPECT_EQ(getLogLevel(), 5);
    EXPECT_FALSE(passes(6));
}

TEST(LogLevel, HasALetter) {
    std::string letters;
    for (int level = 0; level <= 5; ++level) letters += getLogLevelStr(level);
    EXPECT_EQ(letters, "EEWIDV");
}

// What the system's log shows of a line: its tag and priority letter, as "Tag I".
std::string systemLogHead(int level, int printLevel) {
    setLogPrintLevel(printLevel);
    ::testing::internal::CaptureStderr();
    LogMessage("Tag", level) << "needle";
    const std::string written = ::testing::internal::GetCapturedStderr();
    setLogPrintLevel(kLevelError);
    EXPECT_NE(written.find("needle"), std::string::npos) << written;
    return written.substr(0, 5);
}

TEST(SystemLog, GetsEachLevelAtItsPriority) {
    EXPECT_EQ(systemLogHead(1, 0), "Tag E");
    EXPECT_EQ(systemLogHead(2, 1), "Tag W");
    EXPECT_EQ(systemLogHead(3, 1), "Tag I");
    EXPECT_EQ(systemLogHead(4, 1), "Tag D");
    EXPECT_EQ(systemLogHead(5, 1), "Tag V");
}

TEST(SystemLog, GetsLevelsUpToThePrintLevelAsErrors) {
    EXPECT_EQ(systemLogHead(4, 4), "Tag E");
    EXPECT_EQ(systemLogHead(5, 4), "Tag V");
}

TEST(LoggingPrintf, FormatsUnderItsOwnTag) {
    LogCapture capture;
    ::testing::internal::CaptureStderr();
    logging_printf("dir/c.c", "run", 12, kLevelError, "%d of %s", 3, "five");
    EXPECT_EQ(::testing::internal::GetCapturedStderr().substr(0, 4), "CF E");
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"[c.c:12 (run)]  3 of five\033[m\n"});
}

TEST(LoggingPrintf, HasNoPositionWithoutFileOrFunction) {
    LogCapture capture;
    logging_printf(nullptr, "run", 12, kLevelError, "a");
    logging_printf("c.c", nullptr, 12, kLevelError, "b");
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{"[:0 ()]  a\033[m\n", "[:0 ()]  b\033[m\n"}));
}

TEST(LoggingPrintf, CutsTextAt4095Characters) {
    LogCapture capture;
    logging_printf("f", "f", 1, kLevelError, "%s", std::string(5000, 'x').c_str());
    ASSERT_EQ(capture.texts().size(), 1u);
    EXPECT_EQ(capture.texts()[0], std::string(4095, 'x'));
}

TEST(Fatal, IsWrittenWhateverTheLevelAndThenReachesTheAborter) {
    LogCapture capture;
    FatalCapture fatal;
    setLogLevel(0);
    VYN_LOG_FATAL << "no way on";
    ASSERT_EQ(fatal.lines().size(), 1u);
    EXPECT_EQ(capture.lines(), fatal.lines());
    EXPECT_EQ(capture.texts()[0], "no way on");
}

TEST(Fatal, ChecksShowTheConditionAsItIsWritten) {
    FatalCapture fatal;
    const char* impl = nullptr;
    VYN_CHECK(impl != NULL) << "after " << 3;
    EXPECT_EQ(fatal.count("Check failed. (impl != NULL) after 3"), 1);
    VYN_CHECK(impl == NULL);
    EXPECT_EQ(fatal.lines().size(), 1u);
}

TEST(Fatal, CheckedFunctionsReturnTheirValueWhenTheProcessLives) {
    FatalCapture fatal;
    auto checked = [](int size) {
        VYN_CHECK_OR_RETURN_VALUE(size > 0, -1);
        return size;
    };
    EXPECT_EQ(checked(0), -1);
    EXPECT_EQ(fatal.count("Check failed. (size > 0)"), 1);
    EXPECT_EQ(checked(2), 2);
}

TEST(FatalDeathTest, EndsTheProcessByDefault) {
    startDeathTestsAnew();
    EXPECT_DEATH(VYN_CHECK(1 + 1 == 3), "Check failed. \\(1 \\+ 1 == 3\\)");
}

TEST(ThreadTag, BelongsToTheThreadThatSetIt) {
    setThreadLoggingTag("mine");
    std::thread([] {
        EXPECT_EQ(getThreadLoggingTag(), nullptr);
        setThreadLoggingTag("theirs");
        EXPECT_STREQ(getThreadLoggingTag(), "theirs");
    }).join();
    EXPECT_STREQ(getThreadLoggingTag(), "mine");
}

TEST(ThreadName, KeepsFifteenCharacters) {
    std::thread([] {
        setThreadName("a name that is far too long");
        EXPECT_EQ(getThreadName(), "a name that is ");
    }).join();
}

TEST(ThreadId, IsTheKernelsAndDiffersByThread) {
    EXPECT_EQ(currentThreadId(), getpid());
    std::thread([] { EXPECT_NE(currentThreadId(), getpid()); }).join();
}

TEST(LogMessage, LinesOfManyThreadsStayWhole) {
    LogCapture capture;
    ::testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int i = 0; i < 250; ++i) VYN_LOG_INFO << "start " << i << " end";
        });
    }
    for (std::thread& thread : threads) thread.join();
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(capture.count("start "), 1000);
    EXPECT_EQ(capture.count(" end"), 1000);
}

}  // namespace
}  // namespace logging
