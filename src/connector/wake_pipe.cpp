// SPDX-License-Identifier: Apache-2.0

#include "connector/wake_pipe.h"

#include <unistd.h>
#include <vyn/logging.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace vyn {

namespace {

// What a signal interrupted, or failed once, is tried again.
template <typename Call>
ssize_t tryForOne(Call call) {
    constexpr int kMostTries = 4;
    ssize_t count = call();
    for (int tries = 1; count != 1 && tries < kMostTries; ++tries) count = call();
    return count;
}

// An address that is each thread's own: tells threads apart without asking the kernel.
const void* threadMark() {
    thread_local const char mark = 0;
    return &mark;
}

thread_local bool tServesLoop = false;

}  // namespace

WakePipe::WakePipe() {
    if (pipe(mEnds) == 0) return;
    VYN_LOG_ERRNO_ERROR << "pipe fail. a connector can not be woken.";
    mEnds[0] = mEnds[1] = -1;
}

WakePipe::~WakePipe() {
    while (mWakings.load(std::memory_order_acquire) != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (mEnds[0] < 0) return;
    close(mEnds[0]);
    close(mEnds[1]);
}

void WakePipe::enterLoop() {
    mLoopThread.store(threadMark(), std::memory_order_relaxed);
    tServesLoop = true;
}

void WakePipe::leaveLoop() {
    mLoopThread.store(nullptr, std::memory_order_relaxed);
    tServesLoop = false;
}

bool WakePipe::isOnAnyLoopThread() { return tServesLoop; }

bool WakePipe::isOnLoopThread() const {
    return mLoopThread.load(std::memory_order_relaxed) == threadMark();
}

void WakePipe::wake() {
    if (mEnds[1] < 0 || (isOnLoopThread() && !mOwnWakesCount)) return;
    writeByte();
}

int WakePipe::drain() {
    char byte;
    const ssize_t count = tryForOne([&] { return read(mEnds[0], &byte, 1); });
    if (count != 1) return count == 0 ? EPIPE : errno;  // somebody has closed the other end
    // After the read: a wake-up between the two is covered by the turn that follows, which looks
    // at everything that was posted before it.
    mByteWaits.exchange(false, std::memory_order_acq_rel);
    return 0;
}

int WakePipe::mend() {
    mHasFailed.store(false, std::memory_order_relaxed);
    return writeByte();
}

// Returns 0, or an errno. Writes no line about that, as callers hold locks: the loop does.
int WakePipe::writeByte() {
    if (mByteWaits.exchange(true, std::memory_order_acq_rel)) return 0;
    const char byte = 0;
    if (tryForOne([&] { return write(mEnds[1], &byte, 1); }) == 1) return 0;
    const int error = errno;
    mByteWaits.store(false, std::memory_order_release);
    mHasFailed.store(true, std::memory_order_relaxed);
    return error;
}

}  // namespace vyn
