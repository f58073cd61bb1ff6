// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_queue.h"

#include "common/tick.h"

// What may be asked of timers; see timer_queue_calls.cpp for how they are called.

namespace vyn {

// Timers that were added as they were told of their end go with their pages.
TimerQueue::~TimerQueue() { clear(); }

int TimerQueue::add(Timer* timer, long intervalMs, void* arg) {
    AutoMonitor lock(mLock);
    const int64_t now = tick::now();  // first, as it waits for whatever is being fetched
    mHeap.makeRoom();
    TimerWrapper* const made = mTimers.add(timer);  // the last step that could lack memory
    made->setInterval(intervalMs);
    made->setArg(arg);
    made->schedule(now);
    mHeap.push(made);
    publishNextExpire();
    mWakePipe.wake();
    return made->getId();
}

void TimerQueue::remove(int id) {
    const bool mayWait = !TimerCall::isUnderWay();
    AutoMonitor lock(mLock);
    // An id that came round may belong to several timers. The callback may use this queue, so each
    // is looked up anew.
    while (TimerWrapper* timer = mTimers.oldest(id)) drop(timer, mayWait);
    if (mayWait && isCalled(id)) awaitCalls(id);  // another thread has removed it just now
}

void TimerQueue::reset(int id) {
    AutoMonitor lock(mLock);
    const int64_t now = tick::now();  // first, as above
    if (TimerWrapper* const timer = mTimers.oldest(id)) schedule(timer, now);
}

void TimerQueue::setInterval(int id, long intervalMs) {
    AutoMonitor lock(mLock);
    TimerWrapper* const timer = mTimers.oldest(id);
    if (timer == nullptr) return;
    timer->setInterval(intervalMs);
    schedule(timer, tick::now());
    mWakePipe.wake();  // it may be due earlier than before
}

void TimerQueue::report(LoopFigures& figures) {
    figures.timers = mFired.value();
    figures.longestLatenessMs = mLongestLateness.value();
    figures.totalLatenessMs = mTotalLateness.value();
    AutoMonitor lock(mLock);
    figures.waitingTimers = mTimers.size();
}

void TimerQueue::schedule(TimerWrapper* timer, int64_t now) {
    timer->schedule(now);
    mHeap.update(timer);
    publishNextExpire();
}

void TimerQueue::unlink(TimerWrapper* timer) {
    mTimers.remove(timer);
    mHeap.erase(timer);
    publishNextExpire();
}

void TimerQueue::publishNextExpire() {
    mNextExpire.store(mHeap.empty() ? INT64_MAX : mHeap.nextExpire(), std::memory_order_release);
}

}  // namespace vyn
