// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "connector/connector_linux.h"

// What the loop does when calls of the kernel fail: it says so, once a second, tries again, and
// does not take the whole processor meanwhile.

namespace vyn {

namespace {

// Descriptors that the kernel refuses to watch for want of memory, or of watches, are offered
// again.
constexpr long kRefusedAgainMs = 1000;

}  // namespace

// A descriptor that was closed before its worker was removed stays in the epoll set for as long as
// a duplicate of it is open, and no call can take it out any more: only a new set is rid of it.
void LinuxConnector::dropClosedRegistrations() {
    const int error = mWorkers.reopenEpoll(false);
    if (error == 0) {
        VYN_LOG_WARNING << "a closed descriptor is still open elsewhere, epoll set is made anew.";
        return;
    }
    if (mStaleLine.isDue()) {
        VYN_LOG_ERROR << logging::ErrnoText{error}
                      << "a closed descriptor is still open elsewhere, and no new epoll set can be "
                         "made. trying again.";
    }
    if (mStaleEvents.areAll()) pause();
}

void LinuxConnector::onWaitFailed(int error) {
    // The wake pipe is in the set, so epoll refuses to change it only when the set is none any
    // more.
    const int state = mTickFd.arm();
    const bool isLost = state == EBADF || state == EINVAL || state == EPERM;
    const bool isMadeAnew = isLost && mWorkers.reopenEpoll(true) == 0;
    const bool isDue = mWaitLine.isDue();
    if (isMadeAnew) {
        if (isDue)
            VYN_LOG_ERROR << logging::ErrnoText{error}
                          << "epoll_wait fail. epoll set is made anew.";
        return;
    }
    if (isDue) VYN_LOG_ERROR << logging::ErrnoText{error} << "epoll_wait fail. trying again.";
    pause();
}

void LinuxConnector::onInterestRefused(int error) {
    if (!mInterestLine.isDue()) return;
    VYN_LOG_ERROR << logging::ErrnoText{error}
                  << "epoll_ctl fail. a descriptor is not watched as it should be. trying again.";
}

// Closed descriptors are refused as a matter of course; others had better be known. The worker may
// have been served, and deleted, meanwhile.
void LinuxConnector::onRefused(const WorkerRegistry::Refusal& refusal,
                               const Registration& registration) {
    if (refusal.fd < 0 || refusal.error == EBADF) return;
    if (refusal.error == ENOMEM || refusal.error == ENOSPC) {
        sendMessageDelayed(nullptr, mReminder.messageFor(Reminder::kRest, registration),
                           kRefusedAgainMs);
        VYN_LOG_WARNING << logging::ErrnoText{refusal.error} << "can not watch fd " << refusal.fd
                        << ", nothing is read from it until that succeeds. worker "
                        << static_cast<const void*>(registration.worker);
        return;
    }
    VYN_LOG_WARNING << logging::ErrnoText{refusal.error} << "can not watch fd " << refusal.fd
                    << ", nothing will be read from it. worker "
                    << static_cast<const void*>(registration.worker);
}

// Messages whose wake-up has failed wait for the loop's next turn: until that works again, the
// turns come often.
void LinuxConnector::mendWakePipe() {
    const int error = mTickFd.mend();
    if (error != 0 && mWakeLine.isDue()) {
        VYN_LOG_ERROR << logging::ErrnoText{error}
                      << "the loop can not be woken. it looks for what "
                      << "is posted every " << kRetryMs << " ms, and tries again.";
    }
}

void LinuxConnector::onWakePipeEmpty() {
    if (!mEmptyLine.isDue()) return;
    VYN_LOG_WARNING << "somebody has emptied the wake pipe. it is filled again.";
}

void LinuxConnector::pause() { std::this_thread::sleep_for(std::chrono::milliseconds(kRetryMs)); }

}  // namespace vyn
