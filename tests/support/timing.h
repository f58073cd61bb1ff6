// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "common/tick.h"

namespace vyn::testing {

// Waits until `condition` holds. Returns false when it does not within a minute, which is far
// longer than anything that is waited for takes, also on a busy machine under a sanitizer.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

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

  protected:
    inline static std::atomic<int64_t> sNow{0};
};

// While it lives, the library's ticks run as the system's clock does, but from `start` on.
class ShiftedClock : public ManualClock {
  public:
    explicit ShiftedClock(int64_t start) : ManualClock(start - tick::now()) {
        tick::setSource([] { return tick::nanoseconds() / 1000000 + sNow; });
    }
};

}  // namespace vyn::testing
