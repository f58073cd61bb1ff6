// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

#include "support/bench.h"
#include "support/machine.h"

// Many repeating timers. Each contestant is a class of this shape, all on one thread:
//
//     Timers(size_t most, Fired fired);      `fired` is told the timer's number
//     void add(size_t timer, int intervalMs);
//     void reset(size_t timer);              one interval from now
//     void remove(size_t timer);
//     void run(const std::function<void()>& first);    calls `first` inside the loop
//     void stop();
namespace timer {

constexpr size_t kPopulation = 100000;
constexpr size_t kChanges = 20000;

// 50 to 1,000 ms, the same for all contestants.
inline int intervalOf(size_t timer) { return 50 + static_cast<int>(timer * 7919 % 951); }
// Walks over the population out of order.
inline size_t shuffled(size_t n) { return n * 48611 % kPopulation; }

// Notes when timers fire, and what that cost once the first second is over.
class Recorder {
  public:
    explicit Recorder(size_t timers) : mLast(timers, bench::now()) { mLateness.reserve(2000000); }

    // False when it has seen enough.
    bool fired(size_t timer) {
        constexpr int64_t kSecond = 1000000000;
        const int64_t now = bench::now();
        if (mBegin > 0) mLateness.push_back(now - mLast[timer] - intervalOf(timer) * 1000000LL);
        mLast[timer] = now;
        if (mBegin == 0 && now - mCreated > kSecond) {
            mBegin = now;
            mCpuAtBegin = bench::threadCpuTime();
        }
        return mBegin == 0 || now - mBegin < kSecond;
    }
    void report() {
        const auto cpu = static_cast<double>(bench::threadCpuTime() - mCpuAtBegin);
        const auto duration = static_cast<double>(bench::now() - mBegin);
        bench::report("cpu_per_s", cpu * 1000 / duration, "ms");
        bench::report("lateness_p99", bench::percentile(mLateness, 0.99) / 1000, "us");
    }

  private:
    int64_t mCreated = bench::now();
    int64_t mBegin = 0;
    int64_t mCpuAtBegin = 0;
    std::vector<int64_t> mLast;
    std::vector<int64_t> mLateness;
};

template <class Timers>
void run(size_t count) {
    bench::pinTo(bench::kMeasuredCore);
    Recorder recorder(count);
    Timers* running = nullptr;
    Timers timers(count, [&](size_t timer) {
        if (!recorder.fired(timer)) running->stop();
    });
    running = &timers;
    timers.run([&] {
        for (size_t i = 0; i < count; ++i) timers.add(i, intervalOf(i));
    });
    recorder.report();
}

// Reports what one of kChanges calls takes.
template <class Change>
void measureChange(const char* metric, Change change) {
    const int64_t begin = bench::threadCpuTime();
    for (size_t i = 0; i < kChanges; ++i) change(i);
    const auto duration = static_cast<double>(bench::threadCpuTime() - begin);
    bench::report(metric, duration / kChanges, "ns");
}

template <class Timers>
void change() {
    bench::pinTo(bench::kMeasuredCore);
    Timers timers(kPopulation + kChanges, [](size_t) {});
    timers.run([&] {
        for (size_t i = 0; i < kPopulation; ++i) timers.add(i, intervalOf(i));
        measureChange("add", [&](size_t i) { timers.add(kPopulation + i, intervalOf(i)); });
        measureChange("reset", [&](size_t i) { timers.reset(shuffled(i)); });
        measureChange("remove", [&](size_t i) { timers.remove(shuffled(i)); });
        timers.stop();
    });
}

template <class Timers>
std::vector<bench::Contest> contests(const char* name) {
    return {{"run-1000", name, [] { run<Timers>(1000); }},
            {"run-10000", name, [] { run<Timers>(10000); }},
            {"run-100000", name, [] { run<Timers>(100000); }},
            {"change-100000", name, [] { change<Timers>(); }}};
}

using Fired = std::function<void(size_t timer)>;

std::vector<bench::Contest> ours();
std::vector<bench::Contest> libuv();
std::vector<bench::Contest> libevent();
std::vector<bench::Contest> asio();

}  // namespace timer
