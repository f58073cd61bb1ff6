#include "device/accept.h"

#include <fcntl.h>
#include <pthread.h>
#include <vyn/logging.h>

#include <atomic>

#include "common/tick.h"
#include "device/socket_io.h"

namespace vyn::io {

namespace {

// Accepting holds the gate shared, shedding holds it alone: otherwise an accept on another thread
// could take the very descriptor that is set free for a moment.
pthread_rwlock_t gGate = PTHREAD_RWLOCK_INITIALIZER;
int gSpare = -1;  // used by who holds the gate alone

void ensureSpare() {
    if (gSpare < 0) gSpare = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

// Accepts one connection with the spare descriptor and hangs up on it.
bool shedConnection(int listener) {
    // Never waits: while other threads accept, the listener's next readiness tries again.
    if (pthread_rwlock_trywrlock(&gGate) != 0) return false;
    closeDescriptor(gSpare);
    gSpare = -1;
    const int shed =
        uninterrupted([&] { return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); });
    closeDescriptor(shed);
    ensureSpare();
    pthread_rwlock_unlock(&gGate);
    return shed >= 0;
}

// A flood of connections must not become a flood of lines.
void reportShedding() {
    constexpr int64_t kIntervalNs = 1000000000;
    static std::atomic<int64_t> nextReport{0};
    const int64_t now = tick::nanoseconds();
    int64_t due = nextReport.load(std::memory_order_relaxed);
    if (now < due || !nextReport.compare_exchange_strong(due, now + kIntervalNs)) return;
    VYN_LOG_ERRNO_ERROR << "accept. hung up on a waiting connection.";
}

}  // namespace

int acceptConnection(int listener, sockaddr* address, socklen_t* length) {
    pthread_rwlock_rdlock(&gGate);
    const int accepted =
        uninterrupted([&] { return accept4(listener, address, length, SOCK_CLOEXEC); });
    const int error = errno;
    pthread_rwlock_unlock(&gGate);
    const bool outOfDescriptors = accepted < 0 && (error == EMFILE || error == ENFILE);
    const bool shed = outOfDescriptors && shedConnection(listener);
    errno = error;
    if (shed) reportShedding();
    return accepted;
}

void reserveSpareDescriptor() {
    pthread_rwlock_wrlock(&gGate);
    ensureSpare();
    pthread_rwlock_unlock(&gGate);
}

}  // namespace vyn::io
