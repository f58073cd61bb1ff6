#pragma once

#include <vector>

#include "connector/timer_wrapper.h"

namespace vyn {

// A binary heap of timers, the one due first on top. Each timer knows its place, so that it can be
// moved and taken out in logarithmic time. Not locked; owns nothing.
class TimerHeap {
  public:
    bool empty() const { return mTimers.empty(); }
    TimerWrapper* top() const { return mTimers.front(); }

    void push(TimerWrapper* timer);
    void erase(TimerWrapper* timer);
    // Moves a timer whose expire() has changed to its new place.
    void update(TimerWrapper* timer);
    // Appends all timers that are due at `now` to `due`, in no order, in time proportional to
    // their number.
    void collectDue(int64_t now, std::vector<TimerWrapper*>& due) const;
    // In no order.
    const std::vector<TimerWrapper*>& all() const { return mTimers; }

  private:
    void place(TimerWrapper* timer, size_t index);
    void siftUp(TimerWrapper* timer, size_t index);
    void siftDown(TimerWrapper* timer, size_t index);

    std::vector<TimerWrapper*> mTimers;
};

}  // namespace vyn
