// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>
#include <vyn/export.h>

namespace vyn {

// Lets one thread wait until another releases it. Each notify() releases one wait(): one that is
// going on, or else a later one, which then returns at once. Any thread may call either.
//
// notify() is a single write(), so that a signal handler may call it as well.
class VYN_API PipeWaiter {
  public:
    // Opens a pipe, closed on exec. When the process is out of descriptors, notify() returns -1 and
    // wait() returns false at once.
    PipeWaiter();
    // No thread may be waiting or notifying.
    ~PipeWaiter();
    PipeWaiter(const PipeWaiter&) = delete;
    PipeWaiter& operator=(const PipeWaiter&) = delete;

    // Waits for at most `ms` milliseconds, or without limit when `ms` is below 1. True when a
    // notify() released this wait; false when the time passed, a signal handler interrupted it or
    // the pipe failed.
    bool wait(int ms);

    // Never blocks. Returns the result of the write: 1, or -1 with errno set. EAGAIN means that the
    // pipe is full, which on Linux takes 65536 notifications nobody has waited for: those stay, and
    // this one is not added to them.
    ssize_t notify();

  private:
    // Read end, write end; -1 when there is no pipe.
    int mPipe[2];
};

}  // namespace vyn
