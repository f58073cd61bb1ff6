#pragma once

#include <atomic>
#include <cstdint>

#include "common/tick.h"

namespace vyn::testing {

// The largest 32-bit tick: one millisecond later, ticks are negative.
constexpr int64_t kLastPositiveTick = INT32_MAX;

// While it lives, the library's ticks stand still until they are set.
class ManualClock {
  public:
    explicit ManualClock(int64_t now) {
        sNow = now;
        tick::setSource([] { return sNow.load(); });
    }
    ~ManualClock() { tick::setSource(nullptr); }

    void advance(int64_t milliseconds) { sNow += milliseconds; }

  private:
    inline static std::atomic<int64_t> sNow{0};
};

// While it lives, the library's ticks run as the system's clock does, but from `start` on.
class ShiftedClock {
  public:
    explicit ShiftedClock(int64_t start) {
        sShift = start - tick::now();
        tick::setSource([] { return tick::nanoseconds() / 1000000 + sShift.load(); });
    }
    ~ShiftedClock() { tick::setSource(nullptr); }

  private:
    inline static std::atomic<int64_t> sShift{0};
};

}  // namespace vyn::testing
