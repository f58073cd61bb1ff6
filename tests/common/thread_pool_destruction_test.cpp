#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vyn/thread_pool.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "common/thread_pool_support.h"
#include "support/emulator.h"
#include "support/fatal_capture.h"
#include "support/log_capture.h"

namespace {

using vyn::ThreadPool;
using vyn::testing::FatalCapture;
using vyn::testing::FunctionTask;
using vyn::testing::Gate;
using vyn::testing::kNoMemoryLimit;
using vyn::testing::kRunsUnderEmulator;
using vyn::testing::LogCapture;
using vyn::testing::ManualTiming;
using vyn::testing::startDeathTestsAnew;

TEST(ThreadPoolDestruction, RunsAndDeletesWhatIsQueuedAndRunning) {
    logging::setLogLevel(logging::kLevelWarning);
    for (int round = 0; round < 1000; ++round) {
        std::atomic<int> run{0};
        std::atomic<int> deleted{0};
        {
            ThreadPool pool(3);
            for (int i = 0; i < 10; ++i) {
                pool.addTask(new FunctionTask([&] { ++run; }, [&] { ++deleted; }));
            }
        }
        ASSERT_EQ(run, 10);
        ASSERT_EQ(deleted, 10);
    }
    logging::setLogLevel(logging::kLevelVerbose);
}

TEST(ThreadPoolDestruction, RunsATaskThatIsAddedWhileAnotherIsQueued) {
    LogCapture log;
    std::atomic<int> run{0};
    Gate bothAdded;
    {
        ThreadPool pool(1);
        pool.addTask(new FunctionTask([&] {
            bothAdded.pass();
            pool.addTask(new FunctionTask([&] { ++run; }));
        }));
        pool.addTask(new FunctionTask([&] { ++run; }));
        bothAdded.open();
    }
    EXPECT_EQ(run, 2);
    EXPECT_EQ(log.count("without being run"), 0);
}

// The destructor empties the timing list once the pool has closed; by this the task knows.
TEST(ThreadPoolDestruction, DeletesUnrunWhatTheLastRunningTaskAdds) {
    LogCapture log;
    ManualTiming timing;
    std::atomic<int> run{0};
    std::atomic<int> deleted{0};
    {
        Gate started;
        ThreadPool pool(2);
        pool.addTask(new FunctionTask([&] {
            started.open();
            timing.advance(20000);
            while (!pool.checkTaskTimeout().empty()) std::this_thread::yield();
            pool.addTask(new FunctionTask([&] { ++run; }, [&] { ++deleted; }));
        }));
        started.pass();
    }
    EXPECT_EQ(run, 0);
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(log.count("tasks deleted without being run: 1"), 1);
    EXPECT_EQ(log.count("running timeout"), 0);
}

TEST(ThreadPoolDestruction, OfAPoolWithoutThreadsDeletesItsTasksAndTellsHowMany) {
    LogCapture log;
    FatalCapture fatal;
    std::atomic<int> run{0};
    std::atomic<int> deleted{0};
    {
        ThreadPool pool(0);
        for (int i = 0; i < 3; ++i) {
            pool.addTask(new FunctionTask([&] { ++run; }, [&] { ++deleted; }));
        }
    }
    EXPECT_EQ(run, 0);
    EXPECT_EQ(deleted, 3);
    EXPECT_EQ(log.count("tasks deleted without being run: 3"), 1);
}

constexpr size_t kStack = size_t{1} << 30;

// Leaves the process memory for the stacks of that many new threads; other uses of memory that
// threads bring with them may make it one less.
void allowThreads(size_t count) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStack);
    if (pthread_setattr_default_np(&attributes) != 0) std::exit(2);
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const size_t used = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const rlim_t limit = used + count * kStack + kStack / 2;
    const rlimit changed{limit, limit};
    if (setrlimit(RLIMIT_AS, &changed) != 0) std::exit(2);
}

// Ends the process, with 0 when as many of eight tasks ran as are expected and all were deleted.
void runEightTasksWith(size_t threads, int expectedRuns) {
    allowThreads(threads);
    std::atomic<int> run{0};
    std::atomic<int> deleted{0};
    {
        ThreadPool pool(5);
        for (int i = 0; i < 8; ++i) {
            pool.addTask(new FunctionTask([&] { ++run; }, [&] { ++deleted; }));
        }
    }
    std::_Exit(run == expectedRuns && deleted == 8 ? 0 : 1);
}

TEST(ThreadPoolDeathTest, WorksWithTheThreadsThatTheSystemGrants) {
    if (kRunsUnderEmulator) GTEST_SKIP() << kNoMemoryLimit;
    startDeathTestsAnew();
    EXPECT_EXIT(runEightTasksWith(2, 8), testing::ExitedWithCode(0),
                "\\[11\\] Resource temporarily unavailable. pthread_create fail. "
                "[34] of 5 worker threads not started.");
}

TEST(ThreadPoolDeathTest, EndsWithoutAnyThread) {
    if (kRunsUnderEmulator) GTEST_SKIP() << kNoMemoryLimit;
    startDeathTestsAnew();
    EXPECT_EXIT(runEightTasksWith(0, 0), testing::ExitedWithCode(0),
                "5 of 5 worker threads not started.");
}

}  // namespace
