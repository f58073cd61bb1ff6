// SPDX-License-Identifier: Apache-2.0

#include "support/machine.h"

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <thread>

#include "support/bench.h"

namespace bench {

namespace {

int64_t readClock(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

// The cores that the process had when it began; pinTo() is not to count in what it left over.
cpu_set_t coresAtStart() {
    cpu_set_t cores;
    require(sched_getaffinity(0, sizeof cores, &cores) == 0, "sched_getaffinity");
    return cores;
}

const cpu_set_t gCores = coresAtStart();

}  // namespace

int64_t now() { return readClock(CLOCK_MONOTONIC); }

int64_t threadCpuTime() { return readClock(CLOCK_THREAD_CPUTIME_ID); }

int64_t processCpuTime() { return readClock(CLOCK_PROCESS_CPUTIME_ID); }

int64_t cpuTimeOf(pthread_t thread) {
    clockid_t clock{};
    require(pthread_getcpuclockid(thread, &clock) == 0, "pthread_getcpuclockid");
    return readClock(clock);
}

void pinTo(int n) {
    for (size_t core = 0; core < CPU_SETSIZE; ++core) {
        if (!CPU_ISSET(core, &gCores) || n-- > 0) continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(core, &one);
        require(sched_setaffinity(0, sizeof one, &one) == 0, "sched_setaffinity");
        return;
    }
    fail("too few cores");
}

double coreDistance() {
    constexpr int kPasses = 200000;
    std::atomic<int> passed{0};
    // Each side writes the next number when it has seen that of the other.
    const auto play = [&passed](int core, int first) {
        pinTo(core);
        for (int next = first; next < kPasses; next += 2) {
            while (passed.load(std::memory_order_acquire) != next) {
            }
            passed.store(next + 1, std::memory_order_release);
        }
    };
    std::thread other(play, kLoadCore, 1);
    const int64_t start = now();
    play(kMeasuredCore, 0);
    other.join();
    return static_cast<double>(now() - start) / kPasses;
}

void allowDescriptors(int count) {
    rlimit limit;
    require(getrlimit(RLIMIT_NOFILE, &limit) == 0, "getrlimit");
    const auto wanted = static_cast<rlim_t>(count);
    if (limit.rlim_cur >= wanted) return;
    limit.rlim_cur = wanted;
    limit.rlim_max = std::max(limit.rlim_max, wanted);
    require(setrlimit(RLIMIT_NOFILE, &limit) == 0, "the limit of open descriptors");
}

double percentile(std::vector<int64_t>& values, double share) {
    const auto last = static_cast<double>(values.size() - 1);
    const auto position = values.begin() + static_cast<std::ptrdiff_t>(last * share);
    std::nth_element(values.begin(), position, values.end());
    return static_cast<double>(*position);
}

}  // namespace bench
