#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vyn/helper.h>

#include <cstdlib>
#include <fstream>
#include <thread>

#include "support/descriptors.h"
#include "support/emulator.h"
#include "support/log_capture.h"

namespace vyn::helper {
namespace {

std::string firstWordOfCommandLine() {
    std::ifstream file("/proc/self/cmdline");
    std::string word;
    std::getline(file, word, '\0');
    return word.substr(0, 1023);
}

TEST(ProcessName, IsTheFirstWordOfTheCommandLineForEveryThread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] { EXPECT_EQ(getCurrentProcessName(), firstWordOfCommandLine()); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(&getCurrentProcessName(), &getCurrentProcessName());
}

void setDescriptorLimit(rlim_t limit) {
    rlimit limits{};
    getrlimit(RLIMIT_NOFILE, &limits);
    limits.rlim_cur = limit;
    setrlimit(RLIMIT_NOFILE, &limits);
}

// Asks for the name without and then with descriptors to read it; exits with 0 if the first
// question is logged and the second answered.
[[noreturn]] void askForNameTwice() {
    testing::LogCapture capture;
    testing::showClassesOfLines();
    capture.clear();
    setDescriptorLimit(0);
    const bool wasUnknown = getCurrentProcessName().empty();
    setDescriptorLimit(64);
    const bool wasLogged =
        capture.count("[24] Too many open files. open") == 1 && capture.lines().size() == 1;
    const bool isKnown = getCurrentProcessName() == firstWordOfCommandLine();
    std::_Exit(wasUnknown && wasLogged && isKnown ? 0 : 1);
}

TEST(ProcessNameDeathTest, IsAskedForAgainAfterAFailure) {
    testing::startDeathTestsAnew();
    EXPECT_EXIT(askForNameTwice(), ::testing::ExitedWithCode(0), "");
}

TEST(Sleep, ReturnsAtOnceForLessThanASecond) {
    const int64_t start = ntick();
    sleep(-1);
    EXPECT_LT(ntick() - start, 30'000'000'000);
}

}  // namespace
}  // namespace vyn::helper
