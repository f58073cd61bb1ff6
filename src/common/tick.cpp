#include "common/tick.h"

#include <algorithm>
#include <atomic>
#include <ctime>

namespace vyn::tick {

namespace {

std::atomic<Source> gSource{nullptr};

timespec monotonicTime() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

}  // namespace

int64_t now() {
    if (Source source = gSource.load(std::memory_order_relaxed)) return source();
    const timespec time = monotonicTime();
    return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

int64_t after(long delayMs) { return now() + std::clamp<int64_t>(delayMs, INT32_MIN, INT32_MAX); }

int64_t nanoseconds() {
    const timespec time = monotonicTime();
    return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

void setSource(Source source) { gSource.store(source, std::memory_order_relaxed); }

}  // namespace vyn::tick
