// SPDX-License-Identifier: Apache-2.0

#include "echo/server_process.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "support/bench.h"
#include "support/machine.h"

namespace echo {

ServerProcess::ServerProcess(void (*serve)(const Place& place), bool isUnix,
                             const std::function<void()>& before) {
    int ends[2];
    bench::require(pipe(ends) == 0, "pipe");
    if (isUnix) mPath = "/tmp/bench_echo." + std::to_string(getpid());
    mProcess = fork();
    bench::require(mProcess >= 0, "fork");
    if (mProcess == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        bench::pinTo(bench::kMeasuredCore);
        before();
        serve({mPath, ends[1]});
        bench::fail("the server ended");
    }
    close(ends[1]);
    bench::require(read(ends[0], &mPort, sizeof mPort) == sizeof mPort, "the server's start");
    close(ends[0]);
    bench::require(clock_getcpuclockid(mProcess, &mClock) == 0, "clock_getcpuclockid");
}

ServerProcess::~ServerProcess() {
    kill(mProcess, SIGKILL);
    waitpid(mProcess, nullptr, 0);
    if (!mPath.empty()) unlink(mPath.c_str());
}

int64_t ServerProcess::cpuTime() const {
    timespec time;
    bench::require(clock_gettime(mClock, &time) == 0, "the server ended");
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

}  // namespace echo
