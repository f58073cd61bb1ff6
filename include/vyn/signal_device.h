// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <vector>

#include <vyn/device.h>

namespace vyn {

// Signals as events of a loop: instead of interrupting a thread anywhere, they call a function on
// the loop's thread, where everything is allowed.
//
//     vyn::SignalDevice signals({SIGINT, SIGTERM}, [&](const vyn::SignalDevice::Signal&) {
//         connector.stop();
//     });
//     vyn::Worker worker(&signals, nullptr);
//     connector.addWorkerLocked(&worker, &executor);
//
// Make it before any thread is started: it blocks its signals on the calling thread, and threads
// inherit that; one that does not block a signal takes it in the old way. Programs that the process
// starts inherit it too, so unblock the signals (sigprocmask) before exec. Several signals of a
// kind that come before the loop looks count as one. SIGKILL and SIGSTOP cannot be had, and faults
// of the program's own (SIGSEGV, ...) stay as they are.
class VYN_API SignalDevice : public Device {
  public:
    // One that came.
    struct Signal {
        int number;  // such as SIGTERM
        pid_t pid;   // the process that sent it, or 0 for the kernel; for SIGCHLD the child
        uid_t uid;   // its user
        int status;  // for SIGCHLD: the exit status, or the signal that ended the child
    };
    // Is given each signal.
    using Function = std::function<void(const Signal&)>;

    // Blocks the signals and opens the descriptor. When that fails it is logged, and the device
    // never reports anything. `onSignal` may delete the device.
    SignalDevice(const std::vector<int>& signals, Function onSignal);
    // The signals stay blocked: what is pending would end the process now.
    ~SignalDevice() override;
    SignalDevice(const SignalDevice&) = delete;
    SignalDevice& operator=(const SignalDevice&) = delete;

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    // Returns `len` and writes nothing.
    int write(const void* data, int len) override;
    int getFd() override;

  private:
    // Shared, so that a call may outlive the device.
    const std::shared_ptr<const Function> mOnSignal;
    int mFd;
};

}  // namespace vyn
