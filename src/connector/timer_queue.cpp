// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_queue.h"

#include <memory>

#include "common/tick.h"

// What may be asked of timers; see timer_queue_calls.cpp for how they are called.

namespace vyn {

namespace {

// Ids start again at 0 behind this one.
constexpr int kLastCountedId = 2147483630;

}  // namespace

TimerQueue::~TimerQueue() {
    clear();
    AutoMonitor lock(mLock);
    // Timers that were added as they were told of their end.
    for (const TimerHeap::Entry& entry : mHeap.takeAll()) delete entry.timer;
}

int TimerQueue::add(Timer* timer, long intervalMs, void* arg) {
    AutoMonitor lock(mLock);
    auto made = std::make_unique<TimerWrapper>(timer);
    made->setInterval(intervalMs);
    made->schedule(tick::now());
    made->setId(takeId());
    made->setArg(arg);
    made->setSequence(mNextSequence++);
    mById.makeRoom();
    mHeap.push(made.get());  // the last step that could lack memory
    TimerWrapper* const wrapper = made.release();
    mById.insert(wrapper);
    publishNextExpire();
    mWakePipe.wake();
    return wrapper->getId();
}

void TimerQueue::remove(int id) {
    const bool mayWait = !TimerCall::isUnderWay();
    AutoMonitor lock(mLock);
    // An id that came round may belong to several timers. The callback may use this queue, so each
    // is looked up anew.
    while (TimerWrapper* timer = mById.oldest(id)) drop(timer, mayWait);
    if (mayWait && isCalled(id)) awaitCalls(id);  // another thread has removed it just now
}

void TimerQueue::reset(int id) {
    AutoMonitor lock(mLock);
    if (TimerWrapper* const timer = mById.oldest(id)) schedule(timer);
}

void TimerQueue::setInterval(int id, long intervalMs) {
    AutoMonitor lock(mLock);
    TimerWrapper* const timer = mById.oldest(id);
    if (timer == nullptr) return;
    timer->setInterval(intervalMs);
    schedule(timer);
    mWakePipe.wake();  // it may be due earlier than before
}

void TimerQueue::report(LoopFigures& figures) {
    figures.timers = mFired.value();
    figures.longestLatenessMs = mLongestLateness.value();
    figures.totalLatenessMs = mTotalLateness.value();
    AutoMonitor lock(mLock);
    figures.waitingTimers = mById.size();
}

int TimerQueue::takeId() {
    const int id = mNextId;
    mNextId = id > kLastCountedId ? 0 : id + 1;
    return id;
}

void TimerQueue::schedule(TimerWrapper* timer) {
    timer->schedule(tick::now());
    mHeap.update(timer);
    publishNextExpire();
}

void TimerQueue::unlink(TimerWrapper* timer) {
    mById.erase(timer);
    mHeap.erase(timer);
    timer->mRemoved = true;
    publishNextExpire();
}

void TimerQueue::publishNextExpire() {
    mNextExpire.store(mHeap.empty() ? INT64_MAX : mHeap.nextExpire(), std::memory_order_release);
}

}  // namespace vyn
