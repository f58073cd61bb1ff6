// SPDX-License-Identifier: Apache-2.0

#include "device/accept.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <vyn/logging.h>

#include <atomic>

#include "common/tick.h"
#include "device/socket_io.h"

namespace vyn::io {

namespace {

// Accepting holds the gate shared, shedding holds it alone: otherwise an accept on another thread
// could take the very descriptor that is set free for a moment.
pthread_rwlock_t gGate = PTHREAD_RWLOCK_INITIALIZER;
// Used by who holds the gate alone: the reserve, and what it is refilled from.
int gSpare = -1;
int gNull = -1;
// Something else of the process took the reserve while it was set free.
std::atomic<bool> gSpareIsLost{false};

void refillSpare() {
    if (gNull < 0) gNull = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (gSpare < 0) gSpare = fcntl(gNull, F_DUPFD_CLOEXEC, 0);
    gSpareIsLost.store(gSpare < 0, std::memory_order_relaxed);
}

// Accepts one connection with the spare descriptor and hangs up on it.
bool shedConnection(int listener) {
    // Never waits: while other threads accept, the listener's next readiness tries again.
    if (pthread_rwlock_trywrlock(&gGate) != 0) return false;
    closeDescriptor(gSpare);
    gSpare = -1;
    const int shed =
        uninterrupted([&] { return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); });
    // Hangs up by putting the new reserve in the connection's place: nobody gets between the two.
    if (shed >= 0) gSpare = dup3(gNull, shed, O_CLOEXEC);
    if (gSpare < 0) closeDescriptor(shed);
    refillSpare();
    pthread_rwlock_unlock(&gGate);
    return shed >= 0;
}

// A flood of connections must not become a flood of lines.
bool isLineDue() {
    constexpr int64_t kIntervalNs = 1000000000;
    static std::atomic<int64_t> nextLine{0};
    const int64_t now = tick::nanoseconds();
    int64_t due = nextLine.load(std::memory_order_relaxed);
    return now >= due && nextLine.compare_exchange_strong(due, now + kIntervalNs);
}

// `error` is why no connection could be accepted.
void onFailure(int listener, int error) {
    const bool isOutOfDescriptors = error == EMFILE || error == ENFILE;
    const bool shed = isOutOfDescriptors && shedConnection(listener);
    errno = error;
    if (wouldBlock() || !isLineDue()) return;
    if (shed) {
        VYN_LOG_ERRNO_ERROR << "accept. hung up on a connection that waited at fd " << listener;
    } else if (isOutOfDescriptors) {
        VYN_LOG_ERRNO_ERROR << "accept. a connection waits for a descriptor at fd " << listener;
    } else {
        VYN_LOG_ERRNO_ERROR << "accept. no connection could be taken at fd " << listener;
    }
}

}  // namespace

int acceptConnection(int listener, sockaddr* address, socklen_t* length) {
    pthread_rwlock_rdlock(&gGate);
    const int accepted =
        uninterrupted([&] { return accept4(listener, address, length, SOCK_CLOEXEC); });
    const int error = errno;
    pthread_rwlock_unlock(&gGate);
    if (accepted >= 0) {
        if (gSpareIsLost.load(std::memory_order_relaxed)) reserveSpareDescriptor();
        return accepted;
    }
    onFailure(listener, error);
    errno = error;
    return -1;
}

int msUntilNextAccept(int error) {
    // Each look takes a connection from the queue, or another process has taken it.
    const bool movesOn = error == EMFILE || error == ENFILE || error == EAGAIN;
    return movesOn ? 1 : 10;
}

// Never waits: another thread may be waiting for a connection on a blocking listener.
void reserveSpareDescriptor() {
    if (pthread_rwlock_trywrlock(&gGate) != 0) {
        gSpareIsLost.store(true, std::memory_order_relaxed);
        return;
    }
    refillSpare();
    pthread_rwlock_unlock(&gGate);
}

}  // namespace vyn::io
