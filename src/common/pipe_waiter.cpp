// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <vyn/pipe_waiter.h>

#include <algorithm>
#include <cerrno>

#include "common/tick.h"

namespace vyn {

namespace {

constexpr int64_t kNanosecondsPerMs = 1000000;

// Rounded up, so that a wait never ends early.
int msUntil(int64_t deadline) {
    const int64_t left = std::max<int64_t>(deadline - tick::nanoseconds(), 0);
    return static_cast<int>((left + kNanosecondsPerMs - 1) / kNanosecondsPerMs);
}

// `ms` below 0 waits without limit.
bool waitReadable(int descriptor, int ms) {
    pollfd interest{descriptor, POLLIN, 0};
    return poll(&interest, 1, ms) > 0;
}

}  // namespace

// Neither end blocks: of two waiters that one byte wakes, only one can read it, and nobody may ever
// empty a pipe that is full.
PipeWaiter::PipeWaiter() : mPipe{-1, -1} {
    [[maybe_unused]] const int unreported = pipe2(mPipe, O_CLOEXEC | O_NONBLOCK);
}

PipeWaiter::~PipeWaiter() {
    if (mPipe[0] == -1) return;
    close(mPipe[0]);
    close(mPipe[1]);
}

bool PipeWaiter::wait(int ms) {
    // poll() would pass over a missing descriptor and wait for nothing.
    if (mPipe[0] == -1) return false;

    const bool limited = ms >= 1;
    const int64_t deadline = tick::nanoseconds() + ms * kNanosecondsPerMs;
    while (waitReadable(mPipe[0], limited ? msUntil(deadline) : -1)) {
        char byte;
        const ssize_t count = read(mPipe[0], &byte, 1);
        if (count == 1) return true;
        const bool takenByAnother = count == -1 && errno == EAGAIN;
        if (!takenByAnother || (limited && msUntil(deadline) == 0)) return false;
        // Otherwise a pipe that is said to be readable and is not would make this spin.
        poll(nullptr, 0, 1);
    }
    return false;
}

ssize_t PipeWaiter::notify() { return write(mPipe[1], "a", 1); }

}  // namespace vyn
