// SPDX-License-Identifier: Apache-2.0

#include <vyn/thread_pool.h>

#include <climits>
#include <future>

#include "common/task_ids.h"
#include "support/support.h"

namespace vyn::testing {
namespace {

// Runs a function with its number; counts those that are deleted.
struct FunctionTask : ThreadPool::Task {
    using Work = std::function<void(int id)>;
    explicit FunctionTask(Work toRun) : work(std::move(toRun)) {}
    ~FunctionTask() override { ++sDeleted; }
    void run() override { work(mId); }

    Work work;
    inline static std::atomic<int> sDeleted{0};
};

void add(ThreadPool& pool, FunctionTask::Work work) {
    pool.addTask(new FunctionTask(std::move(work)));
}

TEST(TaskIds, StartAtOneAndGoRoundThroughTheSmallestIntAndZero) {
    EXPECT_EQ(TaskIds().next(), 1);
    TaskIds late(INT_MAX - 1);
    for (const int id : {INT_MAX, INT_MIN, 0, 1}) EXPECT_EQ(late.next(), id);
}

TEST(ThreadPool, RunsOrCancelsAndDeletesEachTaskOnceWhilePausesPutItsThreadsToSleep) {
    std::atomic<int> run{0};
    int cancelled = 0;
    FunctionTask::sDeleted = 0;
    {
        ThreadPool pool(4);
        const auto produce = [&] {
            for (int i = 0; i < 100000; ++i) {
                add(pool, [&](int) { ++run; });
                if (i % 1000 == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        };
        std::thread other(produce);
        for (int i = 0; i < 1000; ++i) cancelled += pool.cancelAll();
        produce();
        other.join();
    }
    EXPECT_EQ(run + cancelled, 200000);
    EXPECT_EQ(FunctionTask::sDeleted, 200000);
}

TEST(ThreadPool, StartsTasksInTheOrderOfTheirNumbersOnThreadsWithAName) {
    LogCapture log;
    std::vector<int> ids;
    std::string name, expected;
    {
        ThreadPool pool(1);
        for (int i = 0; i < 100; ++i)
            add(pool, [&](int id) { ids.push_back(id - static_cast<int>(ids.size())); });
        add(pool, [&](int) {
            name = logging::getThreadName();
            expected = "ThreadPool-" + std::to_string(logging::currentThreadId());
        });
    }
    EXPECT_EQ(ids, std::vector<int>(100, ids.at(0)));
    EXPECT_EQ(name, expected.substr(0, 15));
    EXPECT_EQ(log.count("worker thread created. count: 1") + log.count(" destroyed."), 2);
}

// A task that waits for others is stuck for ever when an idle thread sleeps on.
TEST(ThreadPool, RunsAsManyTasksAtOnceAsItHasThreads) {
    ThreadPool pool(4);
    for (int round = 0; round < 2000; ++round) {
        std::atomic<int> running{0}, done{0};
        for (int i = 0; i < 4; ++i) {
            add(pool, [&](int) {
                ++running;
                while (running < 4) std::this_thread::yield();
                ++done;
            });
        }
        while (done < 4) std::this_thread::yield();
    }
}

// What is queued behind a task that holds up the only thread is cancelled: one out of the midst,
// the first and the last, one that is running or gone, and the rest; also by a task, and while the
// pool is being destroyed.
TEST(ThreadPool, CancelsWhatIsQueuedAndNothingElse) {
    std::string run;
    std::promise<void> go;
    {
        ThreadPool pool(1);
        std::promise<void> started;
        const auto first = pool.addTask([&] {
            started.set_value();
            go.get_future().wait();
        });
        started.get_future().wait();
        int ids[5];
        for (int i = 0; i < 5; ++i) {
            ids[i] = *pool.addTask([&run, i] { run += static_cast<char>('0' + i); });
            if (i != 3) continue;
            EXPECT_TRUE(pool.cancel(ids[1])) << "some are in order by now";
        }
        for (const int i : {0, 4}) EXPECT_TRUE(pool.cancel(ids[i])) << i;
        for (const int id : {ids[1], *first}) EXPECT_FALSE(pool.cancel(id)) << id;
        pool.addTask([&] { EXPECT_EQ(pool.cancelAll(), 2); });
        for (int i = 0; i < 2; ++i) pool.addTask([] { ADD_FAILURE(); });
        go.set_value();
    }
    EXPECT_EQ(run, "23");
}

TEST(ThreadPool, WithABoundDeletesATaskThatFindsTheQueueFull) {
    std::promise<void> started, go;
    ThreadPool pool(1, 2);
    const auto busy = [&] {
        started.set_value();
        go.get_future().wait();
    };
    pool.addTask(busy);
    started.get_future().wait();
    const auto second = pool.addTask([] {});
    const auto queue = [&] { return pool.addTask(new FunctionTask([](int) {})).has_value(); };
    FunctionTask::sDeleted = 0;
    EXPECT_TRUE(queue());
    EXPECT_FALSE(queue());
    EXPECT_EQ(FunctionTask::sDeleted, 1);
    EXPECT_TRUE(pool.cancel(*second)) << "makes room";
    EXPECT_TRUE(queue());
    EXPECT_EQ(pool.cancelAll(), 2);
    for (const bool hasRoom : {true, true, false}) EXPECT_EQ(queue(), hasRoom);
    go.set_value();
}

TEST(ThreadPool, WithoutThreadsIsRefusedAndDeletesItsTasksUnrun) {
    LogCapture log;
    FatalCapture fatal;
    for (const int threads : {0, -1}) {
        ThreadPool pool(threads);
        add(pool, [](int) { ADD_FAILURE(); });
    }
    EXPECT_EQ(log.count("tasks deleted without being run: 1"), 2);
    EXPECT_EQ(fatal.count("Check failed. (tasks > 0)"), 2);
}

// Pools that time their tasks by a clock that the test moves.
class ThreadPoolTiming : public ::testing::Test {
  protected:
    ThreadPoolTiming() { config::debug::setDEBUG_THREAD_POOL_CHECK(true); }
    ~ThreadPoolTiming() override { config::debug::setDEBUG_THREAD_POOL_CHECK(false); }

    // Adds a task and tells its number once it is running, which it does until the end.
    std::string startTask(ThreadPool& pool, std::promise<void>& end) {
        std::promise<int> started;
        add(pool, [&](int id) {
            std::future<void> ended = end.get_future();
            started.set_value(id);
            ended.wait();
        });
        return std::to_string(started.get_future().get());
    }

    LogCapture log;
    ManualClock clock{INT_MAX - 5000};
};

TEST_F(ThreadPoolTiming, ListsTheTasksRunningPastTheLimitUntilTheyEnd) {
    std::promise<void> ends[3];
    ThreadPool pool(2);
    const std::string first = "{ Task id:" + startTask(pool, ends[0]) + ", cost ";
    clock.advance(2000);
    const std::string second = "{ Task id:" + startTask(pool, ends[1]) + ", cost ";
    clock.advance(8000);
    EXPECT_EQ(pool.checkTaskTimeout(), "");
    clock.advance(2001);
    EXPECT_EQ(pool.checkTaskTimeout(), first + "12001 ms.}, " + second + "10001 ms.}, ");
    config::debug::setDEBUG_THREAD_POOL_CHECK(false);
    ends[0].set_value();
    startTask(pool, ends[2]);
    EXPECT_EQ(pool.checkTaskTimeout(), second + "10001 ms.}, ") << "also after it went off";
    for (size_t i : {1u, 2u}) ends[i].set_value();
}

// The destructor empties the list of running tasks once the pool has closed; so the task knows.
TEST_F(ThreadPoolTiming, LetsTheLastRunningTaskOfAClosedPoolAddWhatIsDeletedUnrun) {
    std::promise<void> started;
    {
        ThreadPool pool(2);
        add(pool, [&](int) {
            started.set_value();
            clock.advance(20000);
            while (!pool.checkTaskTimeout().empty()) std::this_thread::yield();
            add(pool, [](int) { ADD_FAILURE(); });
        });
        started.get_future().wait();
    }
    EXPECT_EQ(log.count("tasks deleted without being run: 1"), 1);
    EXPECT_EQ(log.count("running timeout"), 0);
}

}  // namespace
}  // namespace vyn::testing
