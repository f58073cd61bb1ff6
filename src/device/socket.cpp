// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <netinet/tcp.h>
#include <unistd.h>
#include <vyn/socket.h>

#include <cerrno>
#include <utility>

#include "device/accept.h"
#include "device/socket_io.h"
#include "device/socket_options.h"

namespace vyn {

namespace {

// Connections that a TCP listener accepts get its settings.
int openSocket(int family, Socket::Type type) {
    const int kind = type == Socket::TCP ? SOCK_STREAM : SOCK_DGRAM;
    const int fd = ::socket(family, kind | SOCK_CLOEXEC, 0);
    if (fd >= 0 && type == Socket::TCP) io::setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    return fd;
}

bool fail(int error) {
    errno = error;
    return false;
}

bool parsePeer(const std::string& ip, int port, SocketAddress* address) {
    return ip.empty() ? fail(EINVAL) : SocketAddress::parse(ip, port, address);
}

}  // namespace

Socket::Socket(Type type) { create(type); }

Socket::Socket(const Socket* other) {
    if (other != nullptr) move(*other);
}

Socket::Socket(Socket&& other) noexcept { move(other); }

Socket& Socket::operator=(Socket&& other) noexcept {
    move(other);
    return *this;
}

void Socket::move(const Socket& other) {
    takeDescriptor(other);
    mType = other.mType;
    mHostIsValid = other.mHostIsValid;
    mHost = other.mHost;
    mRemote = other.mRemote;
}

Socket Socket::fromDescriptor(int fd) {
    Socket adopted;
    int type = 0;
    if (!io::adopt(
            fd, [](int family) { return family == AF_INET || family == AF_INET6; }, &type)) {
        return adopted;
    }
    adopted.setDescriptor(fd);
    adopted.mType = type == SOCK_DGRAM ? UDP : TCP;
    if (adopted.mType == TCP) adopted.setNoDelay(true);
    SocketAddress remote;
    socklen_t length = SocketAddress::kCapacity;
    if (getpeername(fd, remote.raw(), &length) == 0) adopted.mRemote = remote;
    return adopted;
}

bool Socket::create(Type type) {
    const int family = mHost.family() == AF_INET6 ? AF_INET6 : AF_INET;
    mType = type;
    mRemote = SocketAddress();
    setDescriptor(openSocket(family, type));
    return isValid();
}

bool Socket::setHostIP(const std::string& ip) {
    mHostIsValid = SocketAddress::parse(ip, 0, &mHost);
    return mHostIsValid;
}

bool Socket::bind(int port) {
    SocketAddress local;
    if (!mHostIsValid) return fail(EINVAL);
    if (!SocketAddress::parse(mHost.ip(), port, &local) || !openFor(local.family())) return false;
    // A restarted service must get its port back while connections of the last one fade out. For
    // UDP the option would let a second socket take the port over.
    if (mType == TCP) io::setOption(fd(), SOL_SOCKET, SO_REUSEADDR, 1);
    return ::bind(fd(), local.raw(), local.length()) == 0;
}

bool Socket::connect(const std::string& ip, int port, int timeoutMs) {
    SocketAddress remote;
    if (!parsePeer(ip, port, &remote) || !openFor(remote.family())) return false;
    if (!io::connectWithin(fd(), remote.raw(), remote.length(), timeoutMs)) return false;
    mRemote = remote;
    return true;
}

bool Socket::startConnect(const std::string& ip, int port) {
    SocketAddress remote;
    if (!parsePeer(ip, port, &remote) || !openFor(remote.family())) return false;
    if (!setNonBlock(true)) return false;
    if (::connect(fd(), remote.raw(), remote.length()) != 0 && errno != EINPROGRESS) return false;
    mRemote = remote;
    return true;
}

Socket Socket::accept() {
    Socket accepted;
    SocketAddress remote;
    socklen_t length = SocketAddress::kCapacity;
    accepted.setDescriptor(io::acceptConnection(fd(), remote.raw(), &length));
    if (accepted.isValid()) accepted.mRemote = remote;
    return accepted;
}

int Socket::sendTo(const void* data, int size, const SocketAddress& to) {
    // Before sending, as even a send that fails gives the socket an address.
    if (mType == UDP && to.family() == AF_INET6 && !openFor(AF_INET6)) return -1;
    return io::send(fd(), data, size, to.raw(), to.length());
}

int Socket::recvFrom(void* buffer, int size, int timeoutMs, SocketAddress* from) {
    SocketAddress sender;
    socklen_t length = SocketAddress::kCapacity;
    const int count = io::receiveWithin(fd(), buffer, size, timeoutMs, sender.raw(), &length);
    if (count >= 0 && from != nullptr) *from = sender;
    return count;
}

std::string Socket::getHostIP() const { return localAddress().ip(); }

int Socket::getHostPort() const { return localAddress().port(); }

// An address of the other family needs another socket. It takes the place of the present one, with
// its number and settings, unless that is bound already.
bool Socket::openFor(int family) {
    const int present = io::getOption(fd(), SOL_SOCKET, SO_DOMAIN);
    if (present < 0 || present == family) return present == family;
    if (getHostPort() != 0) return fail(EAFNOSUPPORT);
    const int replacement = openSocket(family, mType);
    if (replacement < 0) return false;
    const bool replaced =
        io::copySettings(fd(), replacement) &&
        io::uninterrupted([&] { return dup3(replacement, fd(), O_CLOEXEC); }) >= 0;
    io::closeDescriptor(replacement);
    return replaced;
}

SocketAddress Socket::localAddress() const {
    if (!isValid()) return mHost;
    SocketAddress local;
    socklen_t length = SocketAddress::kCapacity;
    getsockname(fd(), local.raw(), &length);
    return local.port() != 0 ? local : mHost;
}

}  // namespace vyn
