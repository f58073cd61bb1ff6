// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/timer.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "common/monitor.h"
#include "connector/callback_watch.h"
#include "connector/loop_counter.h"
#include "connector/timer_call.h"
#include "connector/timer_heap.h"
#include "connector/timer_pages.h"
#include "connector/wake_pipe.h"

namespace vyn {

// A connector's timers.
//
// Any thread may call everything but fireDue() and clear(), also inside a timer's callbacks, which
// are made without the lock.
//
// A removal waits for the callbacks of its timer that other threads are in, so nothing of the timer
// is under way when it has returned. Inside a callback of any timer it does not wait: two loops
// that remove each other's timers could wait for each other for ever. If the timer is being called
// then, the loop tells it of its removal when that call is over.
class TimerQueue {
  public:
    // `wakePipe` is woken for what is added, and `watch`, if there is one, times the calls; neither
    // is owned. Ids are handed out from `firstId` on.
    explicit TimerQueue(WakePipe& wakePipe, int firstId = 0, CallbackWatch* watch = nullptr)
        : mWakePipe(wakePipe), mWatch(watch), mTimers(firstId) {}
    ~TimerQueue();
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    int add(Timer* timer, long intervalMs, void* arg);
    void remove(int id);
    void reset(int id);
    // Also makes it due one such interval from now.
    void setInterval(int id, long intervalMs);
    // Removes all timers, oldest first, and waits for removals of other threads. Returns how many
    // there were.
    int clear();

    // Calls every timer that is due at `now`, a tick::now(), in the order in which they were added.
    // Returns whether there are any. Loop thread.
    bool fireDue(int64_t now);

    // The tick::now() at which the first timer is due; INT64_MAX without timers.
    int64_t nextExpire() const { return mNextExpire.load(std::memory_order_acquire); }
    // Fills in what they show of timers.
    void report(LoopFigures& figures);

  private:
    void schedule(TimerWrapper* timer, int64_t now) VYN_REQUIRES(mLock);
    void fire(TimerWrapper* timer) VYN_REQUIRES(mLock);
    bool call(TimerWrapper* timer);
    void countLateness(int64_t ms);
    void drop(TimerWrapper* timer, bool mayWait) VYN_REQUIRES(mLock);
    void unlink(TimerWrapper* timer) VYN_REQUIRES(mLock);
    void bury(TimerWrapper* timer) VYN_REQUIRES(mLock);
    void tell(Timer* timer) VYN_REQUIRES(mLock);
    void awaitCalls(int id) VYN_REQUIRES(mLock);
    bool isCalled(int id) const VYN_REQUIRES(mLock);
    bool isFiring(uint64_t sequence) const VYN_REQUIRES(mLock);
    void enlist(TimerCall& call) VYN_REQUIRES(mLock);
    void delist(TimerCall& call) VYN_REQUIRES(mLock);
    void beginWalk(TimerCall& call) VYN_REQUIRES(mLock);
    void endWalk() VYN_REQUIRES(mLock);
    void publishNextExpire() VYN_REQUIRES(mLock);

    WakePipe& mWakePipe;
    CallbackWatch* const mWatch;
    Monitor mLock;
    TimerPages mTimers VYN_GUARDED_BY(mLock);
    TimerHeap mHeap VYN_GUARDED_BY(mLock);  // of those of them that are not removed
    TimerCall* mCalls VYN_GUARDED_BY(mLock) = nullptr;
    // While timers are walked over: that call, and those removed meanwhile, which are freed at
    // its end.
    TimerCall* mWalk VYN_GUARDED_BY(mLock) = nullptr;
    TimerWrapper* mRemoved VYN_GUARDED_BY(mLock) = nullptr;
    // Whether the timer that is called now was removed, and is to be told when that is over.
    bool mIsToBeTold VYN_GUARDED_BY(mLock) = false;
    std::vector<TimerWrapper*> mDue;  // the walk's
    int64_t mNow = 0;                 // the walk's, as of the last timer's end
    LoopCount mFired, mTotalLateness;
    LoopCounter<int64_t> mLongestLateness;

    std::atomic<int64_t> mNextExpire{INT64_MAX};
};

}  // namespace vyn
