// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace vyn {

// Callbacks of a queue's timers that a thread makes, or is about to make. Lives on the stack of
// that thread, and is one of the queue's list meanwhile.
class TimerCall {
  public:
    static constexpr int kNobody = -1;
    static constexpr uint64_t kNone = UINT64_MAX;

    TimerCall() : mOuter(tInnermost) { tInnermost = this; }
    ~TimerCall() { tInnermost = mOuter; }
    TimerCall(const TimerCall&) = delete;
    TimerCall& operator=(const TimerCall&) = delete;

    // Whether the calling thread is in a callback of a timer, of whatever queue.
    static bool isUnderWay() { return tInnermost != nullptr; }
    // Whether the calling thread is in this one.
    bool isOfThisThread() const {
        const TimerCall* call = tInnermost;
        while (call != nullptr && call != this) call = call->mOuter;
        return call != nullptr;
    }

    // Guarded by the queue's lock.
    int id = kNobody;           // of the timer that is called
    uint64_t firing = kNone;    // the sequence number of the one whose onTimer() is under way
    TimerCall* next = nullptr;  // in the queue's list

  private:
    // The innermost one of this thread; the others follow through mOuter.
    static inline thread_local TimerCall* tInnermost = nullptr;

    TimerCall* mOuter;
};

}  // namespace vyn
