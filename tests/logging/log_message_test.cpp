// SPDX-License-Identifier: Apache-2.0

#include "support/support.h"

namespace logging {
namespace {

using vyn::testing::FatalCapture;
using vyn::testing::LogCapture;
using Texts = vyn::testing::Strings;

TEST(LogMessage, IsOneLineWithItsSourcePositionAndAColourReset) {
    const struct {
        const char *file, *function, *text, *line;
    } messages[] = {
        {"src/io/pump.cpp", "int vyn::Pump::turn(bool)", "rate 5 \r\n ",
         "pump.cpp:7 (turn)]  rate 5"},
        {"a/b\\c.cpp", "main", " two  words \t", "c.cpp:7 (main)]   two  words \t"},
        {"c\\b/a.cpp", "void free_function(int, char*)", "", "a.cpp:7 (free_function)]  "},
        {"plain", "std::map<int, int> ns::f(int (*)(int))", "\r\n ", "plain:7 ((*))]  "},
    };
    for (const auto& [file, function, text, line] : messages) {
        LogCapture log;
        LogMessage("Tag", file, function, 7, kLevelInfo, false, true) << text;
        EXPECT_EQ(log.lines(), Texts{std::string("[") + line + "\033[m\n"});
    }
    LogCapture log;
    VYN_LOG_TAGGED("Tag", kLevelInfo) << "x";
    LogMessage("Tag", __FILE__, __PRETTY_FUNCTION__, __LINE__ - 1, kLevelInfo, false, true) << "x";
    EXPECT_EQ(log.lines()[0], log.lines()[1]) << "a macro's is the same";
}

TEST(LogMessage, IsEvaluatedAndWrittenOnlyWhenItsLevelPasses) {
    LogCapture log;
    FatalCapture fatal;
    int evaluations = 0;
    VYN_LOG_VERBOSE << "verbose " << ++evaluations;
    setLogLevel(kLevelInfo);
    VYN_LOG_INFO << "info " << ++evaluations;
    VYN_LOG_DEBUG << ++evaluations;
    VYN_CHECK(evaluations == 2) << ++evaluations;
    LogMessage("Tag", kLevelVerbose) << "dropped";
    LogMessage("Tag", "f", "f", 1, kLevelError, true, false) << "not enabled";
    if (evaluations > 2)
        VYN_LOG_INFO << "one statement under an unbraced if";
    else
        evaluations = 0;
    EXPECT_EQ(evaluations, 0);
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
    VYN_LOG_ERRNO_INFO << "stat fail.";
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(disturber.texts(), Texts{"[2] No such file or directory. stat fail."});
    // No byte of the default locale stands for this character, which printf reports in errno.
    logging_printf("f", "f", 1, kLevelInfo, "%ls", L"\u4e2d");
    EXPECT_EQ(errno, ENOENT);
}

// What the system's log shows of lines of all levels: the letters of their priorities.
std::string systemLogLetters(int printLevel) {
    LogCapture restoresTheLevel;
    setLogPrintLevel(printLevel);
    std::string letters;
    for (int level = 1; level <= 5; ++level) {
        ::testing::internal::CaptureStderr();
        LogMessage("Tag", level) << "needle";
        letters += ::testing::internal::GetCapturedStderr().substr(0, 5);
    }
    return letters;
}

TEST(SystemLog, GetsEachLevelAtItsPriorityOrUpToThePrintLevelAsErrors) {
    EXPECT_EQ(systemLogLetters(0), "Tag ETag WTag ITag DTag V");
    EXPECT_EQ(systemLogLetters(4), "Tag ETag ETag ETag ETag V");
    std::string letters;
    for (int level = 0; level <= 5; ++level) letters += getLogLevelStr(level);
    EXPECT_EQ(letters, "EEWIDV");
    const LogCapture restoresTheLevel;
    for (const int level : {0, 9}) {
        setLogLevel(level);
        EXPECT_EQ(getLogLevel(), level == 0 ? 1 : 5) << "brought back into range";
    }
    EXPECT_FALSE(passes(6));
}

TEST(LoggingPrintf, FormatsUnderItsOwnTagAndCutsTextAt4095Characters) {
    LogCapture log;
    ::testing::internal::CaptureStderr();
    logging_printf("dir/c.c", "run", 12, kLevelError, "%d of %s", 3, "five");
    EXPECT_EQ(::testing::internal::GetCapturedStderr().substr(0, 4), "CF E");
    logging_printf(nullptr, "run", 12, kLevelError, "a");
    logging_printf("c.c", nullptr, 12, kLevelError, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(log.lines(), (Texts{"[c.c:12 (run)]  3 of five\033[m\n", "[:0 ()]  a\033[m\n",
                                  "[:0 ()]  " + std::string(4095, 'x') + "\033[m\n"}));
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
    EXPECT_EQ(currentThreadId(), getpid());
    std::thread([] {
        EXPECT_NE(currentThreadId(), getpid());
        EXPECT_EQ(getThreadLoggingTag(), nullptr);
        setThreadLoggingTag("theirs");
        setThreadName("a name that is far too long");
        EXPECT_EQ(getThreadName(), "a name that is ");
    }).join();
    EXPECT_STREQ(getThreadLoggingTag(), "mine");
}

}  // namespace
}  // namespace logging
