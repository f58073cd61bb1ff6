// SPDX-License-Identifier: Apache-2.0

// What becomes of files, pools and conditions when the system refuses a call. The calls are defined
// here in front of the C library's own, so a test can make each fail when it wants to.

#include <dlfcn.h>
#include <pthread.h>
#include <vyn/file_utils.h>
#include <vyn/ini_config.h>
#include <vyn/thread_pool.h>

#include <climits>
#include <cstring>

#include "support/support.h"

namespace {

std::atomic<const char*> gRefused{""};
std::atomic<int> gError{0}, gGranted{0}, gLeft{0};

// While it lives, a call fails: all but the first ones, and so many times.
struct Refusal {
    Refusal(const char* call, int error, int granted = 0, int times = INT_MAX) {
        gError = error;
        gGranted = granted;
        gLeft = times;
        gRefused = call;
    }
    ~Refusal() { gRefused = ""; }
};

// The error, or 0 when the call is granted.
int refusal(const char* call) {
    if (std::strcmp(gRefused, call) != 0 || gGranted-- > 0 || gLeft-- <= 0) return 0;
    return errno = gError;
}

template <typename Call>
Call* real(Call*, const char* name) {
    return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int fstat(int fd, struct stat* status) noexcept {
    return refusal("fstat") ? -1 : real(&fstat, "fstat64")(fd, status);
}
int ftruncate(int fd, off_t size) noexcept {
    return refusal("ftruncate") ? -1 : real(&ftruncate, "ftruncate64")(fd, size);
}
// Refused, the signal is lost.
int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    return refusal("signal") ? 0 : real(&pthread_cond_signal, "pthread_cond_signal")(condition);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* how, void* (*run)(void*),
                   void* what) noexcept {
    const int error = refusal("pthread_create");
    return error ? error : real(&pthread_create, "pthread_create")(thread, how, run, what);
}

namespace vyn::testing {
namespace {

TEST(FailingCalls, SavingLeavesTheFileAsItWasOrPutsItBack) {
    TemporaryFolder folder;
    const std::string old = "a=" + std::string(5000, 'x') + "\n";
    const std::string path = folder.write("settings", old);
    chmod(path.c_str(), 0666);
    LogCapture log;
    IniConfig config(path);
    Buffer content("before");
    {
        const Refusal refusal("fstat", EIO);
        EXPECT_FALSE(config.set("a", "1", true));
        EXPECT_EQ(readFile(path, content), -EIO);
        EXPECT_EQ(content.std_string(), "before");
    }
    EXPECT_EQ(log.count("[5] Input/output error. save fail. " + path), 1);
    EXPECT_EQ(folder.entries(), 1);
    chmod(folder.path().c_str(), 0555);
    {
        PlainUser whoMustRewriteInPlace;
        const Refusal refusal("ftruncate", EIO);
        EXPECT_FALSE(config.save());
        EXPECT_EQ(folder.read("settings"), old);
        EXPECT_TRUE(config.set("a", std::string(9000, 'y'), true)) << "what grows is not cut";
    }
    chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(folder.read("settings"), "a=" + std::string(9000, 'y') + "\n");
}

// Counts how many of its kind were run and deleted.
struct CountedTask : ThreadPool::Task {
    ~CountedTask() override { ++sDeleted; }
    void run() override { ++sRun; }

    inline static std::atomic<int> sRun{0}, sDeleted{0};
};

TEST(FailingCalls, APoolOutlivesALostSignal) {
    for (const int threads : {1, 3}) {
        CountedTask::sRun = 0;
        int added = 0;
        ThreadPool pool(threads);
        const auto hasRunAll = [&] { return CountedTask::sRun == added; };
        {
            // A thread that has just run a task may not sleep yet, and need no signal.
            const Refusal refusal("signal", EINTR, 0, 1);
            for (; gLeft > 0; ++added) {
                while (gLeft > 0 && !hasRunAll()) std::this_thread::yield();
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                pool.addTask(new CountedTask);
            }
        }
        pool.addTask(new CountedTask);
        ++added;
        EXPECT_TRUE(waitUntil(hasRunAll)) << threads;
    }
}

TEST(FailingCalls, APoolWorksWithTheThreadsThatTheSystemGrants) {
    for (const int granted : {2, 0}) {
        LogCapture log;
        CountedTask::sRun = CountedTask::sDeleted = 0;
        {
            const Refusal refusal("pthread_create", EAGAIN, granted);
            ThreadPool pool(5);
            for (int i = 0; i < 8; ++i) pool.addTask(new CountedTask);
        }
        EXPECT_EQ(CountedTask::sRun, granted == 0 ? 0 : 8);
        EXPECT_EQ(CountedTask::sDeleted, 8);
        EXPECT_EQ(log.count(std::to_string(5 - granted) + " of 5 worker threads not started."), 1);
    }
}

}  // namespace
}  // namespace vyn::testing
