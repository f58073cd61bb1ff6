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

}  // namespace

int64_t now() { return milliseconds(CLOCK_MONOTONIC); }

// The coarse clock is behind the other one by some periods of the kernel's timer at most, which are
// up to 10 ms long.
int64_t roughly() { return milliseconds(CLOCK_MONOTONIC_COARSE); }

bool isReached(int64_t time) {
    constexpr int64_t kMostBehindMs = 40;
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
