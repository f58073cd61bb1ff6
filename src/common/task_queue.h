// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/thread_pool.h>

#include <atomic>
#include <cstdint>

namespace vyn {

// The tasks of a pool that wait for a thread, first in, first out. Each is linked to the next, so
// nothing is allocated.
//
// Who adds a task and who takes one meet as rarely as can be: new tasks are pushed onto a stack
// without a lock, and a thread of the pool takes all of them off at once, and turns them round,
// when it has none left. Only while threads are idle, and are to be woken, do others add with the
// lock.
//
// The lock is the pool's, and is held for everything but pushUnlessIdle() and mayBeEmpty().
class TaskQueue {
  public:
    // Any thread, without the lock. False, with nothing done, while a thread is idle. Where it was
    // true the queue, and the pool with it, may be gone when this returns.
    bool pushUnlessIdle(ThreadPool::Task* task);
    void push(ThreadPool::Task* task);

    // Null without one.
    ThreadPool::Task* pop();
    // Takes one out of the midst; null when none has that number.
    ThreadPool::Task* take(int id);
    // Moves all into an empty queue.
    void moveTo(TaskQueue& other);

    [[nodiscard]] bool isEmpty() const { return mayBeEmpty(); }
    // The same without the lock, when it may not be so any more.
    [[nodiscard]] bool mayBeEmpty() const {
        return mFirst.load(std::memory_order_relaxed) == nullptr &&
               (mArrived.load(std::memory_order_relaxed) & ~kIdle) == 0;
    }

    // Tells whether threads are idle. With idle ones, only an empty queue takes that in: false when
    // a task has arrived.
    bool setIdle(bool isIdle);

  private:
    // In the place of a bit that the address of a task does not need.
    static constexpr uintptr_t kIdle = 1;

    void orderArrived();

    // The last task that has arrived, which is linked to the one before, and kIdle.
    std::atomic<uintptr_t> mArrived{0};
    // The first of those in order. Changed with the lock held.
    std::atomic<ThreadPool::Task*> mFirst{nullptr};
};

}  // namespace vyn
