// SPDX-License-Identifier: Apache-2.0

#include "common/task_queue.h"

namespace vyn {

namespace {

ThreadPool::Task* taskIn(uintptr_t word, uintptr_t mark) {
    return reinterpret_cast<ThreadPool::Task*>(word & ~mark);
}

}  // namespace

bool TaskQueue::pushUnlessIdle(ThreadPool::Task* task) {
    uintptr_t last = mArrived.load(std::memory_order_relaxed);
    do {
        if ((last & kIdle) != 0) return false;
        task->mNext = taskIn(last, kIdle);
    } while (!mArrived.compare_exchange_weak(last, reinterpret_cast<uintptr_t>(task),
                                             std::memory_order_release, std::memory_order_relaxed));
    return true;
}

// Others may be pushing without the lock, until a thread is idle.
void TaskQueue::push(ThreadPool::Task* task) {
    uintptr_t last = mArrived.load(std::memory_order_relaxed);
    do {
        task->mNext = taskIn(last, kIdle);
    } while (!mArrived.compare_exchange_weak(last,
                                             reinterpret_cast<uintptr_t>(task) | (last & kIdle),
                                             std::memory_order_release, std::memory_order_relaxed));
}

ThreadPool::Task* TaskQueue::pop() {
    if (mFirst.load(std::memory_order_relaxed) == nullptr) orderArrived();
    ThreadPool::Task* const first = mFirst.load(std::memory_order_relaxed);
    if (first != nullptr) mFirst.store(first->mNext, std::memory_order_relaxed);
    return first;
}

ThreadPool::Task* TaskQueue::take(int id) {
    orderArrived();
    ThreadPool::Task* before = nullptr;
    ThreadPool::Task* task = mFirst.load(std::memory_order_relaxed);
    for (; task != nullptr && task->mId != id; task = task->mNext) before = task;
    if (task == nullptr) return nullptr;
    if (before == nullptr) {
        mFirst.store(task->mNext, std::memory_order_relaxed);
    } else {
        before->mNext = task->mNext;
    }
    return task;
}

void TaskQueue::moveTo(TaskQueue& other) {
    orderArrived();
    other.mFirst = mFirst.exchange(nullptr);
}

bool TaskQueue::setIdle(bool isIdle) {
    uintptr_t last = mArrived.load(std::memory_order_relaxed);
    do {
        if (isIdle && (last & ~kIdle) != 0) return false;
    } while (!mArrived.compare_exchange_weak(last, isIdle ? last | kIdle : last & ~kIdle,
                                             std::memory_order_relaxed, std::memory_order_relaxed));
    return true;
}

// Behind those that are in order already.
void TaskQueue::orderArrived() {
    const uintptr_t last = mArrived.fetch_and(kIdle, std::memory_order_acquire);
    ThreadPool::Task* first = nullptr;
    for (ThreadPool::Task* task = taskIn(last, kIdle); task != nullptr;) {
        ThreadPool::Task* const before = task->mNext;
        task->mNext = first;
        first = task;
        task = before;
    }
    ThreadPool::Task* end = mFirst.load(std::memory_order_relaxed);
    if (end == nullptr) return mFirst.store(first, std::memory_order_relaxed);
    while (end->mNext != nullptr) end = end->mNext;
    end->mNext = first;
}

}  // namespace vyn
