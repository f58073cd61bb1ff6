#include <gtest/gtest.h>
#include <vyn/config.h>
#include <vyn/thread_pool.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <future>
#include <thread>

#include "common/task_ids.h"
#include "support/log_capture.h"
#include "support/manual_clock.h"

namespace vyn::testing {
namespace {

using Work = std::function<void()>;

// Runs a function; counts those that are deleted.
struct FunctionTask : ThreadPool::Task {
    explicit FunctionTask(Work toRun) : work(std::move(toRun)) {}
    ~FunctionTask() override { ++sDeleted; }
    void run() override { work(); }

    Work work;
    inline static std::atomic<int> sDeleted{0};
};

FunctionTask* add(ThreadPool& pool, Work work) {
    auto* task = new FunctionTask(std::move(work));
    pool.addTask(task);
    return task;
}

TEST(TaskIds, StartAtOneAndGoRoundThroughTheSmallestIntAndZero) {
    EXPECT_EQ(TaskIds().next(), 1);
    TaskIds late(INT_MAX - 1);
    for (const int id : {INT_MAX, INT_MIN, 0, 1}) EXPECT_EQ(late.next(), id);
}

TEST(ThreadPool, RunsEachTaskOfManyThreadsOnceUnderANumberOfItsOwn) {
    constexpr int kTasks = 100000;
    std::vector<int> ids(kTasks);
    FunctionTask::sDeleted = 0;
    {
        ThreadPool pool(4);
        const auto produce = [&](size_t first) {
            for (size_t i = first; i < kTasks; i += 2) {
                auto* task = new FunctionTask([] {});
                task->work = [&ids, i, task] { ids[i] += task->mId; };
                pool.addTask(task);
            }
        };
        std::thread other(produce, 1);
        produce(0);
        other.join();
    }
    EXPECT_EQ(FunctionTask::sDeleted, kTasks);
    std::sort(ids.begin(), ids.end());
    for (size_t i = 1; i < kTasks; ++i) ASSERT_EQ(ids[i], ids[i - 1] + 1);
}

TEST(ThreadPool, StartsTasksInTheOrderInWhichTheyWereAdded) {
    std::vector<int> order;
    {
        ThreadPool pool(1);
        for (int i = 0; i < 1000; ++i) add(pool, [&order, i] { order.push_back(i); });
    }
    EXPECT_EQ(order.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

// A task that waits for others is stuck for ever when an idle thread sleeps on.
TEST(ThreadPool, RunsAsManyTasksAtOnceAsItHasThreads) {
    const LogCapture keepsLinesAway;
    ThreadPool pool(4);
    for (int round = 0; round < 2000; ++round) {
        std::atomic<int> running{0}, done{0};
        std::promise<void> allDone;
        for (int i = 0; i < 4; ++i) {
            add(pool, [&] {
                ++running;
                while (running < 4) std::this_thread::yield();
                if (++done == 4) allDone.set_value();
            });
        }
        allDone.get_future().wait();
    }
}

TEST(ThreadPool, NamesItsThreadsAndLogsTheirEndBeforeItsDestructorReturns) {
    LogCapture log;
    std::string name, expected;
    {
        ThreadPool pool(3);
        add(pool, [&] {
            name = logging::getThreadName();
            expected = "ThreadPool-" + std::to_string(logging::currentThreadId());
        });
    }
    EXPECT_EQ(name, expected.substr(0, 15));
    EXPECT_EQ(log.count("worker thread created. count: 3"), 1);
    EXPECT_EQ(log.count(" destroyed."), 3);
}

TEST(ThreadPool, WithoutThreadsIsRefusedAndDeletesItsTasksUnrun) {
    LogCapture log;
    FatalCapture fatal;
    FunctionTask::sDeleted = 0;
    for (const int threads : {0, -1}) {
        ThreadPool pool(threads);
        for (int i = 0; i < 3; ++i) add(pool, [] { ADD_FAILURE(); });
    }
    EXPECT_EQ(FunctionTask::sDeleted, 6);
    EXPECT_EQ(log.count("tasks deleted without being run: 3"), 2);
    EXPECT_EQ(fatal.count("Check failed. (tasks > 0)"), 2);
}

// Pools that time their tasks by a clock that the test moves.
class ThreadPoolTiming : public ::testing::Test {
  protected:
    ThreadPoolTiming() { config::debug::setDEBUG_THREAD_POOL_CHECK(true); }
    ~ThreadPoolTiming() override { config::debug::setDEBUG_THREAD_POOL_CHECK(false); }

    // Adds a task that is running when this returns, and does so until the end.
    int startTask(ThreadPool& pool, std::promise<void>& end) {
        std::promise<void> started;
        const FunctionTask* task = add(pool, [&] {
            std::future<void> ended = end.get_future();
            started.set_value();
            ended.wait();
        });
        started.get_future().wait();
        return task->mId;
    }

    LogCapture log;
    ManualClock clock{INT_MAX - 5000};
};

TEST_F(ThreadPoolTiming, WarnsOfATaskThatRanLongerThan10000Ms) {
    for (const int ms : {10000, 10001}) {
        std::promise<void> done;
        ThreadPool pool(1);
        add(pool, [&] { clock.advance(ms); });
        // The thread reports a task before it takes the next.
        add(pool, [&] { done.set_value(); });
        done.get_future().wait();
    }
    EXPECT_EQ(log.count(" running timeout. costs 10001 ms."), 1);
    EXPECT_EQ(log.count("running timeout"), 1);
}

TEST_F(ThreadPoolTiming, ListsTheTasksRunningPastTheLimitByIdUntilTheyEnd) {
    std::promise<void> ends[4];
    ThreadPool pool(2);
    const std::string first = std::to_string(startTask(pool, ends[0]));
    clock.advance(2000);
    const std::string second = std::to_string(startTask(pool, ends[1]));
    clock.advance(8000);
    EXPECT_EQ(pool.checkTaskTimeout(), "");
    clock.advance(2000);
    EXPECT_EQ(pool.checkTaskTimeout(), "{ Task id:" + first + ", cost 12000 ms.}, ");
    clock.advance(1);
    EXPECT_EQ(pool.checkTaskTimeout(), "{ Task id:" + first + ", cost 12001 ms.}, { Task id:" +
                                           second + ", cost 10001 ms.}, ");
    config::debug::setDEBUG_THREAD_POOL_CHECK(false);
    for (size_t i : {0, 1}) {
        ends[i].set_value();
        startTask(pool, ends[i + 2]);
    }
    EXPECT_EQ(pool.checkTaskTimeout(), "") << "also after the switch went off";
    for (size_t i : {2, 3}) ends[i].set_value();
}

// The destructor empties the list of running tasks once the pool has closed; by this the task
// knows.
TEST_F(ThreadPoolTiming, LetsTheLastRunningTaskOfAClosedPoolAddWhatIsDeletedUnrun) {
    std::promise<void> started;
    {
        ThreadPool pool(2);
        add(pool, [&] {
            started.set_value();
            clock.advance(20000);
            while (!pool.checkTaskTimeout().empty()) std::this_thread::yield();
            add(pool, [] { ADD_FAILURE(); });
        });
        started.get_future().wait();
    }
    EXPECT_EQ(log.count("tasks deleted without being run: 1"), 1);
    EXPECT_EQ(log.count("running timeout"), 0);
}

}  // namespace
}  // namespace vyn::testing
