// SPDX-License-Identifier: Apache-2.0

#include <sys/time.h>
#include <vyn/unix_socket.h>

#include <algorithm>
#include <cerrno>

#include "device/accept.h"
#include "device/socket_file.h"
#include "device/socket_io.h"
#include "device/unix_address.h"

namespace vyn {

namespace {

int openSocket(UnixSocket::Type type) {
    return ::socket(AF_UNIX, (type == UnixSocket::DGRAM ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC,
                    0);
}

// How long a blocking call of the socket waits for the peer; the option's form is also that of the
// time for which a blocking connect waits for room in the backlog. 0 waits for ever.
class SendTimeout {
  public:
    // Puts back what it finds when it goes; leaves errno as it was.
    explicit SendTimeout(int fd) : mFd(fd) {
        socklen_t length = sizeof mFormer;
        getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &mFormer, &length);
    }
    ~SendTimeout() {
        const int savedErrno = errno;
        set(mFormer);
        errno = savedErrno;
    }
    SendTimeout(const SendTimeout&) = delete;
    SendTimeout& operator=(const SendTimeout&) = delete;

    void setMs(int ms) const { set({ms / 1000, ms % 1000 * 1000}); }

  private:
    void set(const timeval& limit) const {
        setsockopt(mFd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    }

    int mFd;
    timeval mFormer{};
};

bool connectWithin(int fd, const UnixAddress& address, int timeoutMs) {
    const io::Deadline deadline(timeoutMs);
    const SendTimeout timeout(fd);
    for (int remaining = deadline.remainingMs();; remaining = deadline.remainingMs()) {
        timeout.setMs(remaining < 0 ? 0 : std::max(remaining, 1));
        if (::connect(fd, address.raw(), address.length()) == 0) return true;
        if (errno != EINTR) return false;
        if (remaining == 0) break;
    }
    errno = EAGAIN;
    return false;
}

}  // namespace

UnixSocket::UnixSocket(Type type) { create(type); }

UnixSocket::UnixSocket(const UnixSocket* other) {
    if (other != nullptr) move(*other);
}

UnixSocket::UnixSocket(UnixSocket&& other) noexcept { move(other); }

UnixSocket& UnixSocket::operator=(UnixSocket&& other) noexcept {
    move(other);
    return *this;
}

void UnixSocket::move(const UnixSocket& other) {
    takeDescriptor(other);
    mType = other.mType;
}

UnixSocket UnixSocket::fromDescriptor(int fd) {
    UnixSocket adopted;
    int type = 0;
    if (!io::adopt(
            fd, [](int family) { return family == AF_UNIX; }, &type))
        return adopted;
    adopted.setDescriptor(fd);
    adopted.mType = type == SOCK_DGRAM ? DGRAM : STREAM;
    return adopted;
}

bool UnixSocket::create(Type type) {
    mType = type;
    setDescriptor(openSocket(type));
    return isValid();
}

bool UnixSocket::bind(const std::string& addr) {
    UnixAddress address;
    if (!UnixAddress::parse(addr, &address)) return false;
    const auto tryToBind = [&] { return ::bind(fd(), address.raw(), address.length()) == 0; };
    if (tryToBind()) return true;
    if (errno != EADDRINUSE) return false;
    // Two processes that found the same abandoned file must not remove each other's new one.
    const SocketFileLock lock(address);
    return tryToBind() || (removeAbandonedSocketFile(address) && tryToBind());
}

bool UnixSocket::connect(const std::string& addr, int timeoutMs) {
    UnixAddress address;
    return UnixAddress::parse(addr, &address) && connectWithin(fd(), address, timeoutMs);
}

UnixSocket UnixSocket::accept() {
    UnixSocket accepted;
    accepted.setDescriptor(io::acceptConnection(fd(), nullptr, nullptr));
    return accepted;
}

int UnixSocket::sendTo(const void* data, int size, const std::string& to) {
    UnixAddress address;
    if (!UnixAddress::parse(to, &address)) return -1;
    return io::send(fd(), data, size, address.raw(), address.length());
}

int UnixSocket::recvFrom(void* buffer, int size, int timeoutMs, std::string* from) {
    UnixAddress address;
    const int count =
        io::receiveWithin(fd(), buffer, size, timeoutMs, address.raw(), address.lengthOut());
    if (count >= 0 && from != nullptr) *from = address.text();
    return count;
}

std::string UnixSocket::getRemoteAddr() const {
    UnixAddress address;
    return getpeername(fd(), address.raw(), address.lengthOut()) == 0 ? address.text() : "";
}

std::string UnixSocket::getLocalAddr() const {
    UnixAddress address;
    return getsockname(fd(), address.raw(), address.lengthOut()) == 0 ? address.text() : "";
}

std::optional<UnixSocket::Credentials> UnixSocket::peerCredentials() const {
    // A listening socket has credentials too, but they are its own.
    int listening = 0;
    socklen_t length = sizeof listening;
    getsockopt(fd(), SOL_SOCKET, SO_ACCEPTCONN, &listening, &length);
    if (listening != 0) return std::nullopt;

    ucred peer{};
    length = sizeof peer;
    const bool known = getsockopt(fd(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0;
    if (!known || peer.uid == static_cast<uid_t>(-1)) return std::nullopt;
    return Credentials{peer.pid, peer.uid, peer.gid};
}

}  // namespace vyn
