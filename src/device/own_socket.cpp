// SPDX-License-Identifier: Apache-2.0

#include "device/own_socket.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <vyn/net_device.h>
#include <vyn/unix_device.h>

#include <cstring>

#include "device/drain_scope.h"
#include "device/socket_io.h"

namespace vyn {

namespace {

// Which class an object was created as. Run-time type information, which the library does without
// on a device, would be found by the same pointer: all compilers used keep it at the front.
const void* createdAs(const Device& device) {
    const void* tables;
    std::memcpy(&tables, static_cast<const void*>(&device), sizeof tables);
    return tables;
}

struct PlainTables {
    const void* net = createdAs(NetDevice());
    const void* local = createdAs(UnixDevice());
};

}  // namespace

OwnSocket OwnSocket::of(Device* device) {
    if (device == nullptr) return {};
    static const PlainTables plain;
    const void* const tables = createdAs(*device);
    if (tables == plain.net) {
        const Socket& socket = static_cast<NetDevice*>(device)->socket();
        return {socket.fd(), socket.type() == Socket::TCP, socket.type() != Socket::TCP};
    }
    if (tables == plain.local) {
        const UnixSocket& socket = static_cast<UnixDevice*>(device)->socket();
        const bool isStream = socket.type() == UnixSocket::STREAM;
        return {socket.fd(), isStream, !isStream};
    }
    return {};
}

// The kernel takes less time over a single part that it does not have to look up in a list.
Sent sendNow(int fd, const iovec* parts, int count) {
    constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(parts);
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    const ssize_t sent = io::uninterrupted([&] {
        return count == 1 ? ::send(fd, parts->iov_base, parts->iov_len, kFlags)
                          : ::sendmsg(fd, &message, kFlags);
    });
    return {static_cast<int>(sent), sent < 0 ? errno : 0};
}

bool isDatagramSocket(int fd) { return io::getOption(fd, SOL_SOCKET, SO_TYPE) == SOCK_DGRAM; }

void endSending(int fd) {
    if (io::getOption(fd, SOL_SOCKET, SO_TYPE) == SOCK_STREAM) ::shutdown(fd, SHUT_WR);
}

// The end itself counts as the last byte, and may be confirmed much later than those before it.
bool hasBytesUnderWay(int fd) {
    int bytes = 0;
    return io::getOption(fd, SOL_SOCKET, SO_PROTOCOL) == IPPROTO_TCP &&
           ::ioctl(fd, SIOCOUTQ, &bytes) == 0 && bytes > 1;
}

bool hasUnreadBytes(int fd) {
    char byte;
    return io::receive(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT, nullptr, nullptr) > 0;
}

int writeToSocket(const Device* device, SocketBase& socket, bool isStream, const void* data,
                  int len) {
    DrainScope* const drain = DrainScope::of(device);
    if (drain == nullptr || len < 0) return socket.send(data, len);
    const iovec part{const_cast<void*>(data), static_cast<size_t>(len)};
    const Sent sent = sendNow(socket.fd(), &part, 1);
    drain->error = sent.error;
    drain->isStream = isStream;
    return sent.count;
}

}  // namespace vyn
