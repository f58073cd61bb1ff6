#include "connector/wake_pipe.h"

#include <unistd.h>
#include <vyn/logging.h>

namespace vyn {

namespace {

// An address that is each thread's own: tells threads apart without asking the kernel.
const void* threadMark() {
    thread_local const char mark = 0;
    return &mark;
}

}  // namespace

WakePipe::WakePipe() {
    if (pipe(mEnds) == 0) return;
    VYN_LOG_ERRNO_ERROR << "pipe fail. a connector can not be woken.";
    mEnds[0] = mEnds[1] = -1;
}

WakePipe::~WakePipe() {
    if (mEnds[0] < 0) return;
    close(mEnds[0]);
    close(mEnds[1]);
}

void WakePipe::enterLoop() { mLoopThread.store(threadMark(), std::memory_order_relaxed); }

void WakePipe::leaveLoop() { mLoopThread.store(nullptr, std::memory_order_relaxed); }

bool WakePipe::isOnLoopThread() const {
    return mLoopThread.load(std::memory_order_relaxed) == threadMark();
}

void WakePipe::wake() {
    if (mEnds[1] < 0 || (isOnLoopThread() && !mOwnWakesCount)) return;
    if (mByteWaits.exchange(true, std::memory_order_acq_rel)) return;
    const char byte = 0;
    [[maybe_unused]] const auto written = write(mEnds[1], &byte, 1);
}

void WakePipe::drain() {
    char byte;
    [[maybe_unused]] const auto taken = read(mEnds[0], &byte, 1);
    // After the read: a wake-up between the two is covered by the turn that follows, which looks
    // at everything that was posted before it.
    mByteWaits.exchange(false, std::memory_order_acq_rel);
}

}  // namespace vyn
