// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/timer.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "common/recursive_lock.h"
#include "connector/timer_heap.h"
#include "connector/timer_index.h"
#include "connector/wake_pipe.h"

namespace vyn {

// A connector's timers.
//
// Any thread may call everything but fireDue(), also inside a timer's callbacks. The callbacks run
// while the lock is held, so once remove() has returned on another thread, no callback of that
// timer is under way.
class TimerQueue {
  public:
    // `wakePipe` is woken for what is added; not owned. Ids are handed out from `firstId` on.
    explicit TimerQueue(WakePipe& wakePipe, int firstId = 0)
        : mWakePipe(wakePipe), mNextId(firstId) {}
    ~TimerQueue();
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    int add(Timer* timer, long intervalMs, void* arg);
    void remove(int id);
    void reset(int id);
    // Removes all timers, oldest first. Returns how many there were.
    int clear();

    // Calls every timer that is due at `now`, a tick::now(), in the order in which they were added.
    // Loop thread.
    void fireDue(int64_t now);

    // The tick::now() at which the first timer is due; INT64_MAX without timers.
    int64_t nextExpire() const { return mNextExpire.load(std::memory_order_acquire); }

  private:
    int takeId() VYN_REQUIRES(mLock);
    void fire(TimerWrapper* timer) VYN_REQUIRES(mLock);
    void drop(TimerWrapper* timer) VYN_REQUIRES(mLock);
    void endWalk() VYN_REQUIRES(mLock);
    void publishNextExpire() VYN_REQUIRES(mLock);

    WakePipe& mWakePipe;
    RecursiveLock mLock;
    int mNextId VYN_GUARDED_BY(mLock);
    uint64_t mNextSequence VYN_GUARDED_BY(mLock) = 0;
    TimerHeap mHeap VYN_GUARDED_BY(mLock);
    TimerIndex mById VYN_GUARDED_BY(mLock);
    // While timers are walked over: those removed meanwhile, which are deleted at its end.
    bool mWalking VYN_GUARDED_BY(mLock) = false;
    TimerWrapper* mRemoved VYN_GUARDED_BY(mLock) = nullptr;
    std::vector<TimerWrapper*> mDue VYN_GUARDED_BY(mLock);

    std::atomic<int64_t> mNextExpire{INT64_MAX};
};

}  // namespace vyn
