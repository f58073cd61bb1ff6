// SPDX-License-Identifier: Apache-2.0

#include "common/tick.h"

#include <algorithm>
#include <atomic>
#include <ctime>

namespace vyn::tick {

namespace {

std::atomic<Source> gSource{nullptr};

timespec timeOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return time;
}

int64_t milliseconds(clockid_t clock) {
    if (Source source = gSource.load(std::memory_order_relaxed)) return source();
    const timespec time = timeOf(clock);
    return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

// How many milliseconds the coarse clock is behind the other one at most: some periods of the
// kernel's timer, of 1 to 10 ms.
int64_t coarseClockLag() {
    constexpr int64_t kPeriods = 4;
    constexpr int64_t kLongestPeriodMs = 10;
    timespec period{};
    if (clock_getres(CLOCK_MONOTONIC_COARSE, &period) != 0) return kPeriods * kLongestPeriodMs;
    return kPeriods * (period.tv_nsec / 1000000 + 1);
}

}  // namespace

int64_t now() { return milliseconds(CLOCK_MONOTONIC); }

int64_t roughly() { return milliseconds(CLOCK_MONOTONIC_COARSE); }

bool isReached(int64_t time) {
    static const int64_t kMostBehindMs = coarseClockLag();
    if (time - kMostBehindMs > roughly()) return false;
    return time <= now();
}

int64_t delay(long delayMs) { return std::clamp<int64_t>(delayMs, INT32_MIN, INT32_MAX); }

int64_t after(long delayMs) { return now() + delay(delayMs); }

int64_t nanoseconds() {
    const timespec time = timeOf(CLOCK_MONOTONIC);
    return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

Instant instant() {
    const int64_t time = nanoseconds();
    const Source source = gSource.load(std::memory_order_relaxed);
    return {time, source != nullptr ? source() : time / 1000000};
}

void setSource(Source source) { gSource.store(source, std::memory_order_relaxed); }

}  // namespace vyn::tick
