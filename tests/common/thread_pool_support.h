#pragma once

#include <vyn/condition.h>
#include <vyn/config.h>
#include <vyn/thread_pool.h>

#include <atomic>
#include <functional>
#include <utility>

#include "common/tick.h"

namespace vyn::testing {

// Runs one function as a task, and another when it is deleted.
class FunctionTask : public ThreadPool::Task {
  public:
    explicit FunctionTask(
        std::function<void()> work, std::function<void()> onDeleted = [] {})
        : mWork(std::move(work)), mOnDeleted(std::move(onDeleted)) {}
    ~FunctionTask() override { mOnDeleted(); }
    void run() override { mWork(); }

  private:
    std::function<void()> mWork;
    std::function<void()> mOnDeleted;
};

// Holds threads back until it is opened.
class Gate {
  public:
    void open() {
        mCondition.lock();
        mOpen = true;
        mCondition.broadcast();
        mCondition.unlock();
    }
    void pass() {
        mCondition.lock();
        while (!mOpen) mCondition.wait();
        mCondition.unlock();
    }

  private:
    Condition mCondition;
    bool mOpen VYN_GUARDED_BY(mCondition) = false;
};

// While it lives, pools time their tasks by a clock that the test moves.
class ManualTiming {
  public:
    explicit ManualTiming(int64_t start = 0) {
        sNow = start;
        tick::setSource([] { return sNow.load(); });
        config::debug::setDEBUG_THREAD_POOL_CHECK(true);
    }
    ~ManualTiming() {
        config::debug::setDEBUG_THREAD_POOL_CHECK(false);
        tick::setSource(nullptr);
    }
    ManualTiming(const ManualTiming&) = delete;
    ManualTiming& operator=(const ManualTiming&) = delete;

    void advance(int64_t ms) { sNow += ms; }

  private:
    inline static std::atomic<int64_t> sNow{0};
};

}  // namespace vyn::testing
