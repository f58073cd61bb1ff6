// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "common/tick.h"
#include "connector/timer_queue.h"

// Calling timers, without the lock.

namespace vyn {

int TimerQueue::clear() {
    AutoMonitor lock(mLock);
    std::vector<TimerHeap::Entry> timers = mHeap.takeAll();
    std::sort(timers.begin(), timers.end(), [](const auto& left, const auto& right) {
        return TimerWrapper::olderFirst(left.timer, right.timer);
    });
    TimerCall walk;
    beginWalk(walk);
    for (const TimerHeap::Entry& entry : timers) {
        if (!entry.timer->mRemoved) drop(entry.timer, false);  // one before it may have removed it
    }
    endWalk();
    mLock.wait([this]() VYN_REQUIRES(mLock) { return mCalls == nullptr; });
    return static_cast<int>(timers.size());
}

bool TimerQueue::fireDue(int64_t now) {
    if (nextExpire() > now) return false;

    AutoMonitor lock(mLock);
    mDue.clear();
    mHeap.collectDue(now, mDue);
    std::sort(mDue.begin(), mDue.end(), TimerWrapper::olderFirst);
    TimerCall walk;
    beginWalk(walk);
    mNow = now;
    try {
        for (TimerWrapper* timer : mDue) {
            // A timer that fired before it, or another thread, may have removed or reset it.
            if (!timer->mRemoved && timer->getLeftTime(now) < 1) fire(timer);
        }
    } catch (...) {  // of the application's; clear() would wait for this call for ever
        endWalk();
        throw;
    }
    endWalk();
    return true;
}

void TimerQueue::fire(TimerWrapper* timer) {
    countLateness(-timer->getLeftTime(mNow));
    mWalk->id = timer->getId();
    mWalk->firing = timer->mSequence;
    bool goOn = false;
    try {
        goOn = mLock.without([this, timer] { return call(timer); });
    } catch (...) {
        if (timer->mIsToBeTold) tell(timer->mTimer);
        throw;
    }
    mWalk->firing = TimerCall::kNone;
    mNow = tick::now();
    if (!timer->mRemoved) {
        timer->schedule(mNow);
        mHeap.update(timer);
        if (!goOn) drop(timer, false);
    } else if (timer->mIsToBeTold) {
        tell(timer->mTimer);
    }
    mWalk->id = TimerCall::kNobody;
    mLock.wakeWaiters();
}

bool TimerQueue::call(TimerWrapper* timer) {
    if (mWatch == nullptr) return timer->trigger();
    return mWatch->call("onTimer", timer->getId(), [timer] { return timer->trigger(); });
}

void TimerQueue::countLateness(int64_t ms) {
    mFired.add(1);
    mTotalLateness.add(static_cast<uint64_t>(ms));
    mLongestLateness.raiseTo(ms);
}

// Takes the timer out and tells it, or leaves that to the loop that calls it now.
void TimerQueue::drop(TimerWrapper* timer, bool mayWait) {
    Timer* const told = timer->mTimer;
    __builtin_prefetch(told);  // its fetching is not held up by the lock then
    const uint64_t sequence = timer->mSequence;
    TimerCall call;
    call.id = timer->getId();
    const bool isCalledElsewhere = isFiring(sequence) && !mWalk->isOfThisThread();
    timer->mIsToBeTold = isCalledElsewhere && !mayWait;
    const bool isLeft = timer->mIsToBeTold;
    unlink(timer);
    bury(timer);
    if (isLeft) return;
    enlist(call);
    if (isCalledElsewhere) {
        mLock.wait([this, sequence]() VYN_REQUIRES(mLock) { return !isFiring(sequence); });
    }
    try {
        tell(told);
    } catch (...) {
        delist(call);
        throw;
    }
    delist(call);
}

// A walk may be about to look at it, and leaves its deletion to its end.
void TimerQueue::bury(TimerWrapper* timer) {
    if (mWalk == nullptr) {
        delete timer;
        return;
    }
    timer->mNextInBucket = mRemoved;
    mRemoved = timer;
}

void TimerQueue::tell(Timer* timer) {
    mLock.without([timer] { timer->onTimerRemoved(); });
}

// Waits until nobody else is in a callback of the timer.
void TimerQueue::awaitCalls(int id) {
    TimerCall waiting;  // so that clear() waits for this
    enlist(waiting);
    mLock.wait([this, id]() VYN_REQUIRES(mLock) { return !isCalled(id); });
    delist(waiting);
}

bool TimerQueue::isCalled(int id) const {
    const TimerCall* call = mCalls;
    while (call != nullptr && call->id != id) call = call->next;
    return call != nullptr;
}

bool TimerQueue::isFiring(uint64_t sequence) const {
    return mWalk != nullptr && mWalk->firing == sequence;
}

void TimerQueue::enlist(TimerCall& call) {
    call.next = mCalls;
    mCalls = &call;
}

void TimerQueue::delist(TimerCall& call) {
    TimerCall** link = &mCalls;
    while (*link != &call) link = &(*link)->next;
    *link = call.next;
    mLock.wakeWaiters();
}

void TimerQueue::beginWalk(TimerCall& call) {
    enlist(call);
    mWalk = &call;
}

void TimerQueue::endWalk() {
    delist(*mWalk);
    mWalk = nullptr;
    while (mRemoved != nullptr) {
        TimerWrapper* const next = mRemoved->mNextInBucket;
        delete mRemoved;
        mRemoved = next;
    }
    publishNextExpire();
}

}  // namespace vyn
