#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "echo/load.h"
#include "echo/server.h"
#include "support/bench.h"
#include "support/machine.h"

namespace echo {

namespace {

constexpr int64_t kWarmUpNs = 200000000;
constexpr int64_t kDurationNs = 1000000000;
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

// A server in a process of its own, on its core. It has one thread.
class Server {
  public:
    Server(const Contestant& contestant, bool isUnix) {
        int ends[2];
        bench::require(pipe(ends) == 0, "pipe");
        if (isUnix) mPath = "/tmp/bench_echo." + std::to_string(getpid());
        mProcess = fork();
        bench::require(mProcess >= 0, "fork");
        if (mProcess == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            bench::pinTo(bench::kMeasuredCore);
            contestant.serve({mPath, ends[1]});
            bench::fail("the server ended");
        }
        close(ends[1]);
        bench::require(read(ends[0], &mPort, sizeof mPort) == sizeof mPort, "the server's start");
        close(ends[0]);
        bench::require(clock_getcpuclockid(mProcess, &mClock) == 0, "clock_getcpuclockid");
    }
    ~Server() {
        kill(mProcess, SIGKILL);
        waitpid(mProcess, nullptr, 0);
        if (!mPath.empty()) unlink(mPath.c_str());
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    const std::string& path() const { return mPath; }
    int port() const { return mPort; }
    // Exact while the server has nothing to do.
    int64_t cpuTime() const {
        timespec time;
        bench::require(clock_gettime(mClock, &time) == 0, "the server ended");
        return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
    }

  private:
    pid_t mProcess;
    std::string mPath;
    int mPort = 0;
    clockid_t mClock;
};

void measure(const Case& it, const Contestant& contestant) {
    bench::allowDescriptors(it.connections + kOtherDescriptors);
    Server server(contestant, it.isUnix);
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
