// SPDX-License-Identifier: Apache-2.0

#include "device/socket_io.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "common/tick.h"

namespace vyn::io {

namespace {

constexpr int64_t kNsPerMs = 1000000;

bool isUnderWay() { return errno == EINPROGRESS || errno == EALREADY; }

int sendOnce(int fd, const char* bytes, int size, const sockaddr* to, socklen_t toLength) {
    return static_cast<int>(uninterrupted([&] {
        return ::sendto(fd, bytes, static_cast<size_t>(size), MSG_NOSIGNAL, to, toLength);
    }));
}

// A socket remembers its attempt to connect, failed or under way, and would refuse another one;
// connecting it to no address makes it as new.
bool abandonConnect(int fd, int error) {
    sockaddr nowhere{};
    nowhere.sa_family = AF_UNSPEC;
    ::connect(fd, &nowhere, sizeof nowhere);
    errno = error;
    return false;
}

bool awaitConnected(int fd, int timeoutMs) {
    const bool ended = awaitReady(fd, POLLOUT, Deadline(timeoutMs));
    const int error = ended ? getOption(fd, SOL_SOCKET, SO_ERROR) : ETIMEDOUT;
    return error == 0 || abandonConnect(fd, error);
}

}  // namespace

Deadline::Deadline(int timeoutMs)
    : mEndNs(timeoutMs < 0 ? INT64_MAX : tick::nanoseconds() + timeoutMs * kNsPerMs) {}

int Deadline::remainingMs() const {
    if (mEndNs == INT64_MAX) return -1;
    // Rounded up, or the last fraction of a millisecond would be spent polling without waiting.
    const int64_t remaining = (mEndNs - tick::nanoseconds() + kNsPerMs - 1) / kNsPerMs;
    return static_cast<int>(std::clamp<int64_t>(remaining, 0, INT_MAX));
}

int duplicate(int fd) { return fd < 0 ? -1 : fcntl(fd, F_DUPFD_CLOEXEC, 0); }

void closeDescriptor(int fd) {
    if (fd < 0) return;
    const int savedErrno = errno;
    // Not repeated when interrupted: the descriptor is gone by then, and may be someone else's.
    ::close(fd);
    errno = savedErrno;
}

bool setNonBlocking(int fd, bool on) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) return false;
    const int wanted = on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
    return wanted == flags || fcntl(fd, F_SETFL, wanted) == 0;
}

bool setOption(int fd, int level, int name, int value) {
    return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

int getOption(int fd, int level, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    return getsockopt(fd, level, name, &value, &length) == 0 ? value : -1;
}

bool adopt(int fd, bool isOfFamily(int), int* type) {
    const int family = getOption(fd, SOL_SOCKET, SO_DOMAIN);
    *type = getOption(fd, SOL_SOCKET, SO_TYPE);
    if (family < 0 || *type < 0) return false;
    const bool isOfType = *type == SOCK_STREAM || *type == SOCK_DGRAM;
    errno = isOfType ? EAFNOSUPPORT : ESOCKTNOSUPPORT;
    return isOfType && isOfFamily(family) && fcntl(fd, F_SETFD, FD_CLOEXEC) == 0;
}

bool awaitReady(int fd, short events, const Deadline& deadline) {
    pollfd entry{fd, events, 0};
    return uninterrupted([&] { return poll(&entry, 1, deadline.remainingMs()); }) > 0;
}

bool waitALittle(const Deadline& deadline) {
    constexpr int kPauseMs = 5;
    const int remaining = deadline.remainingMs();
    if (remaining == 0) return false;
    poll(nullptr, 0, remaining < 0 ? kPauseMs : std::min(remaining, kPauseMs));
    return true;
}

int send(int fd, const void* data, int size, const sockaddr* to, socklen_t toLength) {
    if (size < 0) {
        errno = EINVAL;
        return -1;
    }
    const char* const bytes = static_cast<const char*>(data);
    // At least once, because an empty datagram is one too.
    int sent = sendOnce(fd, bytes, size, to, toLength);
    while (sent > 0 && sent < size) {
        const int count = sendOnce(fd, bytes + sent, size - sent, to, toLength);
        if (count < 1) break;  // what has gone must not be sent again
        sent += count;
    }
    return sent;
}

int receive(int fd, void* buffer, int size, int flags, sockaddr* from, socklen_t* fromLength) {
    if (size < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(uninterrupted([&] {
        return ::recvfrom(fd, buffer, static_cast<size_t>(size), flags, from, fromLength);
    }));
}

int receiveWithin(int fd, void* buffer, int size, int timeoutMs, sockaddr* from,
                  socklen_t* fromLength) {
    const auto tryNow = [&] { return receive(fd, buffer, size, MSG_DONTWAIT, from, fromLength); };
    const int count = tryNow();
    if (count >= 0 || !wouldBlock()) return count;
    return awaitAndCall(fd, POLLIN, Deadline(timeoutMs), tryNow);
}

bool connectWithin(int fd, const sockaddr* to, socklen_t toLength, int timeoutMs) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || !setNonBlocking(fd, true)) return false;
    bool connected = uninterrupted([&] { return ::connect(fd, to, toLength); }) == 0;
    if (!connected && isUnderWay()) connected = awaitConnected(fd, timeoutMs);
    const int error = errno;
    fcntl(fd, F_SETFL, flags);
    errno = error;
    return connected;
}

}  // namespace vyn::io
