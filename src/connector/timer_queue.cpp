// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_queue.h"

#include <algorithm>
#include <memory>

#include "common/tick.h"

namespace vyn {

namespace {

// Ids start again at 0 behind this one.
constexpr int kLastCountedId = 2147483630;

}  // namespace

TimerQueue::~TimerQueue() { clear(); }

int TimerQueue::add(Timer* timer, long intervalMs, void* arg) {
    AutoRecursiveLock lock(mLock);
    auto made = std::make_unique<TimerWrapper>(timer);
    made->setInterval(intervalMs);
    made->schedule();
    made->setId(takeId());
    made->setArg(arg);
    made->mSequence = mNextSequence++;
    mById.makeRoom();
    mHeap.push(made.get());  // the last step that could lack memory
    TimerWrapper* const wrapper = made.release();
    mById.insert(wrapper);
    publishNextExpire();
    mWakePipe.wake();
    return wrapper->getId();
}

void TimerQueue::remove(int id) {
    AutoRecursiveLock lock(mLock);
    // An id that came round may belong to several timers. The callback may use this queue, so each
    // is looked up anew.
    while (TimerWrapper* timer = mById.oldest(id)) drop(timer);
    publishNextExpire();
}

void TimerQueue::reset(int id) {
    AutoRecursiveLock lock(mLock);
    TimerWrapper* oldest = mById.oldest(id);
    if (oldest == nullptr) return;
    oldest->schedule();
    mHeap.update(oldest);
    publishNextExpire();
}

int TimerQueue::clear() {
    AutoRecursiveLock lock(mLock);
    std::vector<TimerHeap::Entry> timers = mHeap.takeAll();
    std::sort(timers.begin(), timers.end(), [](const auto& left, const auto& right) {
        return TimerWrapper::olderFirst(left.timer, right.timer);
    });
    mWalking = true;
    for (const TimerHeap::Entry& entry : timers) {
        if (!entry.timer->mRemoved) drop(entry.timer);  // one before it may have removed it
    }
    endWalk();
    return static_cast<int>(timers.size());
}

void TimerQueue::fireDue(int64_t now) {
    if (nextExpire() > now) return;

    AutoRecursiveLock lock(mLock);
    mDue.clear();
    mHeap.collectDue(now, mDue);
    std::sort(mDue.begin(), mDue.end(), TimerWrapper::olderFirst);
    mWalking = true;
    for (TimerWrapper* timer : mDue) {
        // A timer that fired before it may have removed or reset it.
        if (!timer->mRemoved && timer->getLeftTime(now) < 1) fire(timer);
    }
    endWalk();
}

int TimerQueue::takeId() {
    const int id = mNextId;
    mNextId = id > kLastCountedId ? 0 : id + 1;
    return id;
}

void TimerQueue::fire(TimerWrapper* timer) {
    const bool goOn = timer->trigger();
    if (timer->mRemoved) return;  // it removed itself
    mHeap.update(timer);
    if (!goOn) drop(timer);
}

void TimerQueue::drop(TimerWrapper* timer) {
    mById.erase(timer);
    mHeap.erase(timer);
    timer->mRemoved = true;
    timer->onRemove();
    // A walk may be about to look at it, and leaves its deletion to its end.
    if (mWalking) {
        timer->mNextInBucket = mRemoved;
        mRemoved = timer;
    } else {
        delete timer;
    }
}

void TimerQueue::endWalk() {
    mWalking = false;
    while (mRemoved != nullptr) {
        TimerWrapper* const next = mRemoved->mNextInBucket;
        delete mRemoved;
        mRemoved = next;
    }
    publishNextExpire();
}

void TimerQueue::publishNextExpire() {
    mNextExpire.store(mHeap.empty() ? INT64_MAX : mHeap.nextExpire(), std::memory_order_release);
}

}  // namespace vyn
