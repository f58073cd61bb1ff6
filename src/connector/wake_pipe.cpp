// SPDX-License-Identifier: Apache-2.0

#include "connector/wake_pipe.h"

#include <poll.h>
#include <unistd.h>
#include <vyn/logging.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace vyn {

namespace {

constexpr uint32_t kOnce = EPOLLIN | EPOLLONESHOT;

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

WakePipe::WakePipe(Epoll& epoll) : mEpoll(epoll) {
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

// Counts as armed only once it is: whoever comes while another thread is about to arm does so, too,
// as that may not be run for long. Adding nothing to the count of events still takes a place among
// its changes: the turn behind the next event sees all that was posted before this.
//
// Writes no line about a failure, as callers hold locks: the loop does.
void WakePipe::wake() {
    if (mEnds[0] < 0 || (isOnLoopThread() && !mOwnWakesCount)) return;
    const uint32_t events = mEvents.fetch_add(0, std::memory_order_acq_rel);
    if (mArmedAfter.load(std::memory_order_acquire) == events) return;
    if (arm() == 0) {
        mArmedAfter.store(events, std::memory_order_release);
    } else {
        mHasFailed.store(true, std::memory_order_relaxed);
    }
}

// Behind the event: a wake-up between the two is covered by the turn that follows, which looks at
// everything that was posted before it.
void WakePipe::onEvent() { mEvents.fetch_add(1, std::memory_order_acq_rel); }

int WakePipe::mend() {
    mHasFailed.store(false, std::memory_order_relaxed);
    int error = mHasByte ? 0 : fill();
    if (error == 0) error = addTo(mEpoll);
    if (error == EEXIST) error = arm();
    if (error != 0) mHasFailed.store(true, std::memory_order_relaxed);
    return error;
}

bool WakePipe::isFoundEmpty() {
    const uint32_t events = mEvents.load(std::memory_order_relaxed);
    if (!mHasByte || mArmedAfter.load(std::memory_order_relaxed) != events) return false;
    pollfd look{mEnds[0], POLLIN, 0};
    const bool isEmpty = poll(&look, 1, 0) == 0;
    if (isEmpty) mHasByte = false;
    if (isEmpty || arm() != 0) mHasFailed.store(true, std::memory_order_relaxed);
    return isEmpty;
}

int WakePipe::addTo(Epoll& epoll) const { return epoll.add({mEnds[0], 0}, kOnce); }

int WakePipe::arm() { return mEpoll.modify({mEnds[0], 0}, kOnce); }

// Returns 0, or an errno.
int WakePipe::fill() {
    const char byte = 0;
    if (tryForOne([&] { return write(mEnds[1], &byte, 1); }) != 1) return errno;
    mHasByte = true;
    return 0;
}

}  // namespace vyn
