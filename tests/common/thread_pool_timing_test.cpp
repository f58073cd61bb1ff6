#include <gtest/gtest.h>
#include <vyn/thread_pool.h>

#include <atomic>
#include <sstream>
#include <string>

#include "common/thread_pool_support.h"
#include "support/log_capture.h"

namespace {

using vyn::ThreadPool;
using vyn::testing::FunctionTask;
using vyn::testing::Gate;
using vyn::testing::LogCapture;
using vyn::testing::ManualTiming;

constexpr char kWarning[] = "running timeout";

// Adds a task that is running when this returns, and runs until the gate opens.
FunctionTask* startTask(ThreadPool& pool, Gate& end) {
    Gate started;
    auto* task = new FunctionTask([&] {
        started.open();
        end.pass();
    });
    pool.addTask(task);
    started.pass();
    return task;
}

void runTaskOf(int64_t ms, ManualTiming& timing) {
    Gate done;
    ThreadPool pool(1);
    pool.addTask(new FunctionTask([&] { timing.advance(ms); }));
    // The thread reports a task before it takes the next.
    pool.addTask(new FunctionTask([&] { done.open(); }));
    done.pass();
}

TEST(ThreadPoolTiming, WarnsOfATaskThatRan10001Ms) {
    LogCapture log;
    ManualTiming timing;
    std::string expected;
    {
        Gate end;
        Gate done;
        ThreadPool pool(1);
        FunctionTask* task = startTask(pool, end);
        std::ostringstream text;
        text << "[Warning] task " << static_cast<void*>(task) << ", Id: " << task->mId
             << " running timeout. costs 10001 ms.";
        expected = text.str();
        timing.advance(10001);
        // Keeps the destructor from emptying the list before the first task is reported.
        pool.addTask(new FunctionTask([&] { done.open(); }));
        end.open();
        done.pass();
    }
    EXPECT_EQ(log.count(kWarning), 1);
    EXPECT_EQ(log.count(expected), 1);
}

TEST(ThreadPoolTiming, DoesNotWarnOfATaskThatRan10000Ms) {
    LogCapture log;
    ManualTiming timing;
    runTaskOf(10000, timing);
    EXPECT_EQ(log.count(kWarning), 0);
}

TEST(ThreadPoolTiming, CountsAcrossTheWrapOfTheTick) {
    LogCapture log;
    ManualTiming timing(0x7FFFFFFF - 5000);
    runTaskOf(10002, timing);
    EXPECT_EQ(log.count("costs 10002 ms."), 1);
}

TEST(ThreadPoolTiming, ListsTheTasksRunningPastTheLimitById) {
    ManualTiming timing;
    Gate end;
    ThreadPool pool(3);
    const int first = startTask(pool, end)->mId;
    timing.advance(1500);
    const int second = startTask(pool, end)->mId;
    timing.advance(500);
    startTask(pool, end);
    timing.advance(8000);
    EXPECT_EQ(pool.checkTaskTimeout(), "");
    timing.advance(2000);
    std::ostringstream expected;
    expected << "{ Task id:" << first << ", cost 12000 ms.}, { Task id:" << second
             << ", cost 10500 ms.}, ";
    EXPECT_EQ(pool.checkTaskTimeout(), expected.str());
    end.open();
}

TEST(ThreadPoolTiming, IsOffByDefault) {
    EXPECT_FALSE(vyn::config::debug::DEBUG_THREAD_POOL_CHECK());
}

TEST(ThreadPoolTiming, SwitchedOffNeitherListsNorWarns) {
    LogCapture log;
    ManualTiming timing;
    vyn::config::debug::setDEBUG_THREAD_POOL_CHECK(false);
    {
        Gate end;
        ThreadPool pool(1);
        startTask(pool, end);
        timing.advance(20000);
        EXPECT_EQ(pool.checkTaskTimeout(), "");
        end.open();
    }
    EXPECT_EQ(log.count(kWarning), 0);
}

TEST(ThreadPoolTiming, ForgetsATaskThatEndsAfterTheSwitchWentOff) {
    ManualTiming timing;
    Gate end;
    Gate next;
    ThreadPool pool(1);
    startTask(pool, end);
    timing.advance(20000);
    EXPECT_NE(pool.checkTaskTimeout(), "");
    vyn::config::debug::setDEBUG_THREAD_POOL_CHECK(false);
    end.open();
    startTask(pool, next);
    EXPECT_EQ(pool.checkTaskTimeout(), "");
    next.open();
}

}  // namespace
