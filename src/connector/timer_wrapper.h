// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/timer.h>

#include <cstdint>

#include "common/tick.h"

namespace vyn {

// One addTimer() call: the application's timer with its period and its place in the timer queue.
class TimerWrapper {
  public:
    explicit TimerWrapper(Timer* timer);

    void setArg(void* arg) { mArg = arg; }
    void setInterval(long interval) { mInterval = static_cast<int>(tick::delay(interval)); }
    long getInterval() const { return mInterval; }
    void setId(int id) { mId = id; }
    int getId() const { return mId; }

    // Makes it due one interval from `now`, a tick::now().
    void schedule(int64_t now);
    // Milliseconds of tick::now(). Does not wrap.
    int64_t expire() const { return mExpire; }
    // Milliseconds until it is due; negative when it is overdue.
    int64_t getLeftTime(int64_t now) const { return mExpire - now; }

    // Calls the timer. Returns what that does: whether to go on. schedule() follows.
    bool trigger();

    // The order in which timers that are due together fire: that of their addition.
    static bool olderFirst(const TimerWrapper* left, const TimerWrapper* right) {
        return left->mSequence < right->mSequence;
    }

  private:
    friend class TimerHeap;
    friend class TimerIndex;
    friend class TimerQueue;

    void setSequence(uint64_t number) { mSequence = number & ((uint64_t{1} << kSequenceBits) - 1); }

    // In 56 bytes where addresses have 64 bits, as there may be very many.
    Timer* mTimer;
    void* mArg = nullptr;
    int mCount = 0;
    int mInterval = 0;
    int64_t mExpire = 0;
    int mId = 0;

    // Kept by the queue.
    static constexpr uint32_t kNotInHeap = UINT32_MAX;
    uint32_t mHeapIndex = kNotInHeap;
    TimerWrapper* mNextInBucket = nullptr;  // also the next of the removed ones
    static constexpr int kSequenceBits = 62;
    uint64_t mSequence : kSequenceBits;
    uint64_t mRemoved : 1;
    uint64_t mIsToBeTold : 1;  // of that, by the loop that is calling it
};

}  // namespace vyn
