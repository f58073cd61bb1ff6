// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "common/tick.h"
#include "connector/timer_queue.h"

// Calling timers, without the lock.

namespace vyn {

int TimerQueue::clear() {
    AutoMonitor lock(mLock);
    TimerHeap::Entries timers = mHeap.takeAll();
    const auto olderFirst = [this](const auto& left, const auto& right) VYN_REQUIRES(mLock) {
        return mTimers.sequenceOf(left.timer) < mTimers.sequenceOf(right.timer);
    };
    std::sort(timers.begin(), timers.end(), olderFirst);
    TimerCall walk;
    beginWalk(walk);
    for (const TimerHeap::Entry& entry : timers) {
        // One before it may have removed it.
        if (!TimerPages::isRemoved(entry.timer)) drop(entry.timer, false);
    }
    endWalk();
    mLock.wait([this]() VYN_REQUIRES(mLock) { return mCalls == nullptr; });
    return static_cast<int>(timers.size());
}

bool TimerQueue::fireDue(int64_t now) {
    if (nextExpire() > now) return false;

    AutoMonitor lock(mLock);
    mDue.clear();
    mHeap.visitDue(now, [this](TimerWrapper* timer) {
        mDue.push_back(timer);
        __builtin_prefetch(timer->mTimer);
    });
    const auto olderFirst = [this](auto* left, auto* right) VYN_REQUIRES(mLock) {
        return mTimers.sequenceOf(left) < mTimers.sequenceOf(right);
    };
    std::sort(mDue.begin(), mDue.end(), olderFirst);
    TimerCall walk;
    beginWalk(walk);
    mNow = now;
    try {
        for (TimerWrapper* timer : mDue) {
            // A timer that fired before it, or another thread, may have removed or reset it.
            if (TimerHeap::contains(timer) && timer->getLeftTime(now) < 1) fire(timer);
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
    mIsToBeTold = false;
    mWalk->id = timer->getId();
    mWalk->firing = mTimers.sequenceOf(timer);
    bool goOn = false;
    try {
        goOn = mLock.without([this, timer] { return call(timer); });
    } catch (...) {
        if (mIsToBeTold) tell(timer->mTimer);
        throw;
    }
    mWalk->firing = TimerCall::kNone;
    mNow = tick::now();
    if (TimerHeap::contains(timer)) {
        timer->schedule(mNow);
        mHeap.update(timer);
        if (!goOn) drop(timer, false);
    } else if (mIsToBeTold) {
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
    const uint64_t sequence = mTimers.sequenceOf(timer);
    TimerCall call;
    call.id = timer->getId();
    const bool isCalledElsewhere = isFiring(sequence) && !mWalk->isOfThisThread();
    const bool isLeft = isCalledElsewhere && !mayWait;
    if (isLeft) mIsToBeTold = true;
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

// A walk may be about to look at it, and leaves it in place until its end.
void TimerQueue::bury(TimerWrapper* timer) {
    if (mWalk == nullptr) {
        mTimers.free(timer);
        return;
    }
    timer->setNextRemoved(mRemoved);
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
        TimerWrapper* const next = mRemoved->nextRemoved();
        mTimers.free(mRemoved);
        mRemoved = next;
    }
    publishNextExpire();
}

}  // namespace vyn
