// SPDX-License-Identifier: Apache-2.0

#include "echo/load.h"
#include "echo/server_process.h"
#include "support/bench.h"
#include "support/machine.h"

namespace echo {

namespace {

constexpr int64_t kWarmUpNs = 100000000;
constexpr int64_t kDurationNs = 300000000;
constexpr int kOtherDescriptors = 100;

struct Case {
    const char* name;
    bool isUnix;
    size_t messageBytes;
    int connections;
    int active;
};

struct Contestant {
    const char* name;
    void (*serve)(const Place& place);
};

void measure(const Case& it, const Contestant& contestant) {
    bench::allowDescriptors(it.connections + kOtherDescriptors);
    ServerProcess server(contestant.serve, it.isUnix);
    bench::pinTo(bench::kLoadCore);
    Load load(server.path(), server.port(), it.connections, it.messageBytes);
    load.run(it.active, kWarmUpNs);

    const int64_t cpuBefore = server.cpuTime();
    const int64_t begin = bench::now();
    std::vector<int64_t> times = load.run(it.active, kDurationNs);
    const auto duration = static_cast<double>(bench::now() - begin);
    const auto cpu = static_cast<double>(server.cpuTime() - cpuBefore);
    const auto count = static_cast<double>(times.size());
    bench::report("cpu_per_round_trip", cpu / count / 1000, "us");
    bench::report("round_trips_per_s", count * 1e9 / duration, "1/s");
    bench::report("latency_p50", bench::percentile(times, 0.5) / 1000, "us");
    bench::report("latency_p99", bench::percentile(times, 0.99) / 1000, "us");
}

constexpr Case kCases[] = {
    {"tcp-64B-1", false, 64, 1, 1},
    {"tcp-64B-100", false, 64, 100, 100},
    {"tcp-64B-1000", false, 64, 1000, 1000},
    {"tcp-64B-10000", false, 64, 10000, 10000},
    {"tcp-64B-100-of-10000", false, 64, 10000, 100},
    {"tcp-2048B-100", false, 2048, 100, 100},
    {"unix-64B-100", true, 64, 100, 100},
};

constexpr Contestant kContestants[] = {
    {"ours-direct", serveOursDirect},
    {"ours-async", serveOursAsync},
    {"libuv", serveLibuv},
    {"libevent", serveLibevent},
    {"asio", serveAsio},
    {"epoll", serveEpoll},
};

}  // namespace

}  // namespace echo

int main(int argc, char** argv) {
    std::vector<bench::Contest> contests;
    for (const echo::Case& it : echo::kCases) {
        for (const echo::Contestant& contestant : echo::kContestants) {
            contests.push_back({it.name, contestant.name, [&] { echo::measure(it, contestant); }});
        }
    }
    return bench::run(argc, argv, contests);
}
