// SPDX-License-Identifier: Apache-2.0

#include "device/empty_read.h"

#include <poll.h>
#include <vyn/logging.h>

#include "device/socket_io.h"

namespace vyn::io {

namespace {

short readiness(int fd) {
    pollfd entry{fd, POLLIN | POLLRDHUP, 0};
    return poll(&entry, 1, 0) > 0 ? entry.revents : short{0};
}

bool dropNotices(int fd) {
    constexpr int kMost = 1000;
    msghdr unread{};
    int dropped = 0;
    while (dropped < kMost && recvmsg(fd, &unread, MSG_ERRQUEUE | MSG_DONTWAIT) >= 0) ++dropped;
    return dropped > 0;
}

// What a socket reports about a datagram that it has sent before.
bool isAboutADatagram(int error) {
    switch (error) {
        case ECONNREFUSED:
        case ECONNRESET:
        case EHOSTUNREACH:
        case ENETUNREACH:
        case EHOSTDOWN:
        case ENONET:
        case ENOPROTOOPT:
        case EOPNOTSUPP:
        case EPROTO:
        case EACCES:
        case EMSGSIZE:
            return true;
        default:
            return false;
    }
}

bool isShutDown(int fd) { return (readiness(fd) & (POLLRDHUP | POLLHUP)) != 0; }

bool streamGoesOn(int fd, int error) { return error == EAGAIN && dropNotices(fd); }

bool datagramsGoOn(int fd, int error) {
    const bool nothingThere = error == 0 || error == EAGAIN;
    if (nothingThere ? isShutDown(fd) : !isAboutADatagram(error)) return false;
    if (error == EAGAIN) dropNotices(fd);
    if (error == 0) {
        VYN_LOG_DEBUG << "an empty datagram at fd " << fd << " is passed over.";
    } else {
        VYN_LOG_DEBUG << logging::ErrnoText{error} << "no datagram at fd " << fd
                      << ", which goes on.";
    }
    return true;
}

}  // namespace

bool hasOnlyNotices(int fd) {
    const int savedErrno = errno;
    const short ready = readiness(fd);
    errno = savedErrno;
    return ready == POLLERR;
}

bool outlivesEmptyRead(int fd, int count) {
    const int error = count == 0 ? 0 : errno;
    const bool isDatagram = getOption(fd, SOL_SOCKET, SO_TYPE) == SOCK_DGRAM;
    const bool goesOn = isDatagram ? datagramsGoOn(fd, error) : streamGoesOn(fd, error);
    errno = error;
    return goesOn;
}

}  // namespace vyn::io
