// SPDX-License-Identifier: Apache-2.0

#include <sys/signalfd.h>
#include <unistd.h>
#include <vyn/logging.h>
#include <vyn/signal_device.h>

#include <csignal>
#include <utility>

#include "connector/life_watch.h"
#include "device/socket_io.h"

namespace vyn {

namespace {

int openFor(const std::vector<int>& signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) {
        if (sigaddset(&set, signal) != 0) return -1;
    }
    const int error = pthread_sigmask(SIG_BLOCK, &set, nullptr);
    if (error != 0) errno = error;
    return error != 0 ? -1 : signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

SignalDevice::SignalDevice(const std::vector<int>& signals, Function onSignal)
    : mOnSignal(std::make_shared<const Function>(std::move(onSignal))), mFd(openFor(signals)) {
    if (mFd < 0) VYN_LOG_ERRNO_ERROR << "signalfd fail. no signal will be reported.";
}

SignalDevice::~SignalDevice() { io::closeDescriptor(mFd); }

const char* SignalDevice::getClassName() { return "SignalDevice"; }

void SignalDevice::onDataArrival(int) {
    signalfd_siginfo infos[8];
    const ssize_t size = io::uninterrupted([&] { return ::read(mFd, infos, sizeof infos); });
    if (size < 0 && io::wouldBlock()) return restFor(io::kNotReadyRestMs);
    if (size < static_cast<ssize_t>(sizeof infos[0])) {
        onDisconnected();
        return;
    }
    const std::shared_ptr<const Function> onSignal = mOnSignal;
    const LifeWatch life(static_cast<Device*>(this));
    for (size_t i = 0; i < static_cast<size_t>(size) / sizeof infos[0] && !life.ended(); ++i) {
        const signalfd_siginfo& info = infos[i];
        if (*onSignal == nullptr) return;
        (*onSignal)({static_cast<int>(info.ssi_signo), static_cast<pid_t>(info.ssi_pid),
                     static_cast<uid_t>(info.ssi_uid), info.ssi_status});
    }
}

int SignalDevice::write(const void*, int len) { return len; }

int SignalDevice::getFd() { return mFd; }

}  // namespace vyn
