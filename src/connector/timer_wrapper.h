// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/timer.h>

#include <cstdint>

#include "common/tick.h"

namespace vyn {

// One addTimer() call: the application's timer with its period and its place in the timer queue.
class TimerWrapper {
  public:
    TimerWrapper() = default;  // sets nothing: a place for one
    explicit TimerWrapper(Timer* timer);

    void setArg(void* arg) { mArg = arg; }
    void setInterval(long interval) { mInterval = static_cast<int>(tick::delay(interval)); }
    long getInterval() const { return mInterval; }
    void setId(int id) { mId = id; }
    int getId() const { return mId; }

    // Makes it due one interval from `now`, a tick::now().
    void schedule(int64_t now) { mExpire = now + mInterval; }
    // Milliseconds of tick::now(). Does not wrap.
    int64_t expire() const { return mExpire; }
    // Milliseconds until it is due; negative when it is overdue.
    int64_t getLeftTime(int64_t now) const { return mExpire - now; }

    // Calls the timer. Returns what that does: whether to go on. schedule() follows.
    bool trigger();

    // Removed timers make a list of those to be freed later; they are not due any more.
    void setNextRemoved(TimerWrapper* next) { mExpire = reinterpret_cast<intptr_t>(next); }
    TimerWrapper* nextRemoved() const {
        return reinterpret_cast<TimerWrapper*>(static_cast<intptr_t>(mExpire));
    }

  private:
    friend class TimerHeap;
    friend class TimerQueue;

    // In 40 bytes where addresses have 64 bits, as there may be very many.
    Timer* mTimer;
    void* mArg;
    int mCount;
    int mInterval;
    int64_t mExpire;
    int mId;

    static constexpr uint32_t kNotInHeap = UINT32_MAX;
    uint32_t mHeapIndex;  // kept by the heap
};

}  // namespace vyn
