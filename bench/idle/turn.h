// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/eventfd.h>

#include <chrono>
#include <thread>

#include "support/bench.h"
#include "support/machine.h"

// What a turn of a loop costs beside connections and timers that are idle, and what the loop costs
// when they all are. Each contestant is a class of this shape:
//
//     void addConnection(int fd);      watches it for reading
//     void addTimer(int intervalMs);
//     void run(int ready, Turn turn);  calls `turn` each time `ready` is found readable, which it
//                                      always is, until that returns false
namespace idle {

// Counts turns for half a second.
class Turn {
  public:
    // False when that is over.
    bool operator()() {
        ++mCount;
        return mCount % 256 != 0 || bench::now() < mEnd;
    }
    void report() const {
        const auto cpu = static_cast<double>(bench::threadCpuTime() - mCpuAtBegin);
        bench::report("cpu_per_turn", cpu / static_cast<double>(mCount), "ns");
    }

  private:
    int64_t mEnd = bench::now() + 500000000;
    int64_t mCpuAtBegin = bench::threadCpuTime();
    int64_t mCount = 0;
};

// Descriptors that are never readable, and one that is when its counter is not 0.
int openSilent();
int openCounter(unsigned count);

constexpr int kIdleIntervalMs = 3600000;

template <class Loop>
void measureTurn(int connections, int timers) {
    bench::allowDescriptors(connections + 100);
    bench::pinTo(bench::kMeasuredCore);
    Loop loop;
    for (int i = 0; i < connections; ++i) loop.addConnection(openSilent());
    for (int i = 0; i < timers; ++i) loop.addTimer(kIdleIntervalMs + i);
    Turn turn;
    loop.run(openCounter(1), turn);
    turn.report();
}

// The loop's thread is watched by another one, which does not disturb it before it is done.
template <class Loop>
void measureRest(int connections) {
    constexpr int kSeconds = 2;
    bench::allowDescriptors(connections + 100);
    bench::pinTo(bench::kMeasuredCore);
    Loop loop;
    for (int i = 0; i < connections; ++i) loop.addConnection(openSilent());
    const pthread_t measured = pthread_self();
    const int end = openCounter(0);
    std::thread watch([&] {
        bench::pinTo(bench::kLoadCore);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));  // until all has settled
        const int64_t begin = bench::cpuTimeOf(measured);
        std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
        const auto used = static_cast<double>(bench::cpuTimeOf(measured) - begin);
        bench::report("cpu_per_s", used / 1000 / kSeconds, "us");
        bench::require(eventfd_write(end, 1) == 0, "eventfd_write");
    });
    Turn turn;
    loop.run(end, turn);
    watch.join();
}

template <class Loop>
std::vector<bench::Contest> turnContests(const char* name) {
    return {{"turn-10-connections", name, [] { measureTurn<Loop>(10, 0); }},
            {"turn-10000-connections", name, [] { measureTurn<Loop>(10000, 0); }},
            {"rest-10-connections", name, [] { measureRest<Loop>(10); }},
            {"rest-10000-connections", name, [] { measureRest<Loop>(10000); }},
            {"turn-10-timers", name, [] { measureTurn<Loop>(0, 10); }},
            {"turn-10000-timers", name, [] { measureTurn<Loop>(0, 10000); }}};
}

std::vector<bench::Contest> ours();
std::vector<bench::Contest> libuv();
std::vector<bench::Contest> libevent();
std::vector<bench::Contest> asio();
std::vector<bench::Contest> epoll();

}  // namespace idle
