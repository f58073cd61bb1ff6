#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>

// The tests of a build for another processor run under an emulator of its instructions, which
// passes system calls on to this machine's kernel. Here is, in one place, what that changes:
//
// - Death tests are forked from the running program instead of starting it anew.
// - Tests that go through random inputs, each as good as the other, take fewer of them.
namespace vyn::testing {

// Asked before main(), since a test may rename the thread.
inline const bool kRunsUnderEmulator = [] {
    std::string command;
    std::ifstream("/proc/self/comm") >> command;
    return command.compare(0, 5, "qemu-") == 0;
}();

// How many random inputs to go through; emulated code is more than ten times slower.
inline int randomInputs(int count) { return kRunsUnderEmulator ? count / 10 : count; }

// For death tests that count on a new process, in which nothing has been used so far. One emulated
// program cannot execute another; a fork is as good where ctest runs each test by itself.
inline void startDeathTestsAnew() {
    GTEST_FLAG_SET(death_test_style, kRunsUnderEmulator ? "fast" : "threadsafe");
}

}  // namespace vyn::testing
