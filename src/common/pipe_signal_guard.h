// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <signal.h>

#include <cerrno>

namespace vyn {

// While it lives, writing to a pipe whose reader is gone raises no SIGPIPE on this thread; it only
// fails with EPIPE. For descriptors that are no sockets, which can ask for that in the call itself.
// Leaves errno as it was.
class PipeSignalGuard {
  public:
    PipeSignalGuard() {
        sigset_t pending;
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&mPipeSignal);
        sigaddset(&mPipeSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &mPipeSignal, &mFormerMask);
    }
    ~PipeSignalGuard() {
        const int savedErrno = errno;
        const timespec now{};
        // One that was waiting before is somebody else's.
        while (!mWasPending && sigtimedwait(&mPipeSignal, nullptr, &now) < 0 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &mFormerMask, nullptr);
        errno = savedErrno;
    }
    PipeSignalGuard(const PipeSignalGuard&) = delete;
    PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

  private:
    sigset_t mPipeSignal;
    sigset_t mFormerMask;
    bool mWasPending;
};

}  // namespace vyn
