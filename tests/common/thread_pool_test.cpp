#include <gtest/gtest.h>
#include <vyn/thread_pool.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "common/task_ids.h"
#include "common/thread_pool_support.h"
#include "support/emulator.h"
#include "support/fatal_capture.h"
#include "support/log_capture.h"

namespace {

using vyn::TaskIds;
using vyn::ThreadPool;
using vyn::testing::FatalCapture;
using vyn::testing::FunctionTask;
using vyn::testing::Gate;
using vyn::testing::LogCapture;
using vyn::testing::startDeathTestsAnew;

constexpr int kMax = std::numeric_limits<int>::max();
constexpr int kMin = std::numeric_limits<int>::min();

class CountingTask : public ThreadPool::Task {
  public:
    CountingTask(std::atomic<uint8_t>& count, int& id) : mCount(count), mIdWhenRun(id) {}
    void run() override {
        ++mCount;
        mIdWhenRun = mId;
    }

  private:
    std::atomic<uint8_t>& mCount;
    int& mIdWhenRun;
};

class NumberedTask : public ThreadPool::Task {
  public:
    explicit NumberedTask(std::vector<int>& ids) : mIds(ids) {}
    void run() override { mIds.push_back(mId); }

  private:
    std::vector<int>& mIds;
};

TEST(TaskIds, StartAtOneAndGoRoundThroughTheSmallestIntAndZero) {
    TaskIds fresh;
    EXPECT_EQ(fresh.next(), 1);
    EXPECT_EQ(fresh.next(), 2);
    TaskIds late(kMax - 1);
    EXPECT_EQ(late.next(), kMax);
    EXPECT_EQ(late.next(), kMin);
    EXPECT_EQ(late.next(), 0);
    EXPECT_EQ(late.next(), 1);
}

TEST(ThreadPool, RunsEachOfAMillionTasksFromFourThreadsOnce) {
    constexpr size_t kTasks = 1000000;
    constexpr size_t kProducers = 4;
    const auto runs = std::make_unique<std::atomic<uint8_t>[]>(kTasks);
    std::vector<int> ids(kTasks);
    {
        ThreadPool pool(4);
        std::vector<std::thread> producers;
        for (size_t producer = 0; producer < kProducers; ++producer) {
            producers.emplace_back([&, producer] {
                for (size_t i = producer; i < kTasks; i += kProducers) {
                    pool.addTask(new CountingTask(runs[i], ids[i]));
                }
            });
        }
        for (std::thread& producer : producers) producer.join();
    }
    size_t once = 0;
    for (size_t i = 0; i < kTasks; ++i) once += runs[i] == 1;
    EXPECT_EQ(once, kTasks);
    std::sort(ids.begin(), ids.end());
    size_t consecutive = 1;
    while (consecutive < kTasks && ids[consecutive] == ids[consecutive - 1] + 1) ++consecutive;
    EXPECT_EQ(consecutive, kTasks);
}

TEST(ThreadPool, StartsTasksInTheOrderInWhichTheyWereAdded) {
    std::vector<int> order;
    {
        ThreadPool pool(1);
        for (int i = 0; i < 1000; ++i) {
            pool.addTask(new FunctionTask([&order, i] { order.push_back(i); }));
        }
    }
    std::vector<int> expected(1000);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

// A task that waits for others is stuck for ever when an idle thread sleeps on.
TEST(ThreadPool, RunsAsManyTasksAtOnceAsItHasThreads) {
    constexpr int kThreads = 4;
    logging::setLogLevel(logging::kLevelWarning);
    ThreadPool pool(kThreads);
    for (int round = 0; round < 2000; ++round) {
        std::atomic<int> running{0};
        std::atomic<int> done{0};
        Gate allRunning;
        Gate allDone;
        for (int i = 0; i < kThreads; ++i) {
            pool.addTask(new FunctionTask([&] {
                if (++running == kThreads) allRunning.open();
                allRunning.pass();
                if (++done == kThreads) allDone.open();
            }));
        }
        allDone.pass();
    }
    logging::setLogLevel(logging::kLevelVerbose);
}

TEST(ThreadPool, NumbersTheTasksOfAllPoolsTogether) {
    std::vector<int> ids;
    for (int i = 0; i < 3; ++i) {
        ThreadPool pool(1);
        pool.addTask(new NumberedTask(ids));
    }
    EXPECT_EQ(ids, (std::vector<int>{ids[0], ids[0] + 1, ids[0] + 2}));
}

TEST(ThreadPool, NamesItsThreadsAsFarAsTheKernelKeepsIt) {
    std::string name;
    std::string expected;
    {
        ThreadPool pool(1);
        pool.addTask(new FunctionTask([&] {
            name = logging::getThreadName();
            expected = "ThreadPool-" + std::to_string(logging::currentThreadId());
        }));
    }
    EXPECT_EQ(name, expected.substr(0, 15));
}

TEST(ThreadPool, LogsEveryThreadBeforeItsDestructorReturns) {
    LogCapture log;
    { ThreadPool pool(3); }
    EXPECT_EQ(log.count("worker thread created. count: 3"), 1);
    EXPECT_EQ(log.count("worker thread 0x"), 3);
    EXPECT_EQ(log.count(" destroyed."), 3);
    EXPECT_EQ(log.texts().size(), 4u);
}

TEST(ThreadPool, IsNotMadeWithoutThreads) {
    FatalCapture fatal;
    { ThreadPool pool(0); }
    { ThreadPool pool(-1); }
    EXPECT_EQ(fatal.count("Check failed. (tasks > 0)"), 2);
    EXPECT_EQ(fatal.lines().size(), 2u);
}

TEST(ThreadPoolDeathTest, ZeroThreadsAbort) {
    startDeathTestsAnew();
    EXPECT_DEATH(ThreadPool(0), "Check failed. \\(tasks > 0\\)");
}

}  // namespace
