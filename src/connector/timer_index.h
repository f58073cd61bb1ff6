// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "connector/timer_wrapper.h"

namespace vyn {

// Finds timers by their ids. Timers with the same hash are chained through themselves, so adding
// one allocates nothing but, now and then, a larger table. Not locked; owns nothing.
class TimerIndex {
  public:
    // Sees to the memory for one more. The insert() that follows needs none.
    void makeRoom();
    void insert(TimerWrapper* timer);
    void erase(TimerWrapper* timer);
    // Of the timers with this id, which may be several since ids come round, the one that was
    // added first; null when there is none.
    TimerWrapper* oldest(int id) const;
    size_t size() const { return mCount; }

  private:
    size_t bucketOf(int id) const;
    void link(TimerWrapper* timer);
    void grow();

    std::vector<TimerWrapper*> mBuckets;  // a power of two of them, or none
    int mHashShift = 32;                  // leaves as many bits as number the buckets
    size_t mCount = 0;
};

}  // namespace vyn
