// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "connector/timer_wrapper.h"

namespace vyn {

// A heap of timers, the one due first on top. Each timer knows its place, so that it can be moved
// and taken out in logarithmic time. Not locked; owns nothing.
//
// Every timer has up to four below it, and their times stand in the heap itself: moving one looks
// at half as many levels as with two, and at no timer that stays where it is.
class TimerHeap {
  public:
    bool empty() const { return mTimers.empty(); }
    // The time at which the first timer is due. Not for an empty heap.
    int64_t nextExpire() const { return mTimers.front().expire; }

    struct Entry {
        int64_t expire;
        TimerWrapper* timer;
    };

    void push(TimerWrapper* timer);
    // These two ignore a timer that is not in the heap.
    void erase(TimerWrapper* timer);
    // Moves a timer whose expire() has changed to its new place.
    void update(TimerWrapper* timer);
    // Appends all timers that are due at `now` to `due`, in no order, in time proportional to
    // their number.
    void collectDue(int64_t now, std::vector<TimerWrapper*>& due) const;
    // Takes all timers out, in no order. Needs no memory.
    std::vector<Entry> takeAll();

  private:
    static constexpr size_t kWidth = 4;

    void place(Entry entry, size_t index);
    void siftUp(Entry entry, size_t index);
    void siftDown(Entry entry, size_t index);
    size_t firstBelow(size_t index) const;

    std::vector<Entry> mTimers;
};

}  // namespace vyn
