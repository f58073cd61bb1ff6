// SPDX-License-Identifier: Apache-2.0

#include "device/socket_options.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <vyn/socket.h>

#include <cstring>

#include "device/socket_io.h"

namespace vyn {

bool Socket::setNoDelay(bool on) { return io::setOption(fd(), IPPROTO_TCP, TCP_NODELAY, on); }

bool Socket::setKeepAlive(bool on, int idleSeconds, int intervalSeconds, int count) {
    const auto setFigure = [this](int name, int value) {
        return value == 0 || io::setOption(fd(), IPPROTO_TCP, name, value);
    };
    return setFigure(TCP_KEEPIDLE, idleSeconds) && setFigure(TCP_KEEPINTVL, intervalSeconds) &&
           setFigure(TCP_KEEPCNT, count) && io::setOption(fd(), SOL_SOCKET, SO_KEEPALIVE, on);
}

bool Socket::setReusePort(bool on) { return io::setOption(fd(), SOL_SOCKET, SO_REUSEPORT, on); }

namespace io {

namespace {

struct Setting {
    int level;
    int name;
};

constexpr Setting kSettings[] = {
    {SOL_SOCKET, SO_BINDTODEVICE}, {SOL_SOCKET, SO_MARK},           {SOL_SOCKET, SO_PRIORITY},
    {SOL_SOCKET, SO_BROADCAST},    {SOL_SOCKET, SO_DONTROUTE},      {SOL_SOCKET, SO_REUSEADDR},
    {SOL_SOCKET, SO_REUSEPORT},    {SOL_SOCKET, SO_KEEPALIVE},      {SOL_SOCKET, SO_LINGER},
    {SOL_SOCKET, SO_OOBINLINE},    {SOL_SOCKET, SO_RCVLOWAT},       {SOL_SOCKET, SO_RCVTIMEO},
    {SOL_SOCKET, SO_SNDTIMEO},     {SOL_SOCKET, SO_SNDBUF},         {SOL_SOCKET, SO_RCVBUF},
    {IPPROTO_TCP, TCP_NODELAY},    {IPPROTO_TCP, TCP_KEEPIDLE},     {IPPROTO_TCP, TCP_KEEPINTVL},
    {IPPROTO_TCP, TCP_KEEPCNT},    {IPPROTO_TCP, TCP_USER_TIMEOUT},
};

// An option's value as the kernel gives it: a number, a structure or the name of an interface.
struct Value {
    Value(int fd, const Setting& setting) {
        known = getsockopt(fd, setting.level, setting.name, bytes, &length) == 0;
    }
    bool operator==(const Value& other) const {
        return length == other.length && std::memcmp(bytes, other.bytes, sizeof bytes) == 0;
    }

    alignas(int) char bytes[32] = {};
    socklen_t length = sizeof bytes;
    bool known;
};

bool copySetting(int from, int to, const Setting& setting) {
    const Value value(from, setting);
    // A buffer size that was set, even to the default, no longer grows with the connection.
    if (!value.known || value == Value(to, setting)) return true;
    if (setting.name == SO_SNDBUF || setting.name == SO_RCVBUF) {
        const int doubled = getOption(from, setting.level, setting.name);  // so the kernel tells it
        return setOption(to, setting.level, setting.name, doubled / 2);
    }
    return setsockopt(to, setting.level, setting.name, value.bytes, value.length) == 0;
}

}  // namespace

bool copySettings(int from, int to) {
    for (const Setting& setting : kSettings) {
        if (!copySetting(from, to, setting)) return false;
    }
    const int mode = fcntl(from, F_GETFL);
    return mode >= 0 && setNonBlocking(to, (mode & O_NONBLOCK) != 0);
}

}  // namespace io

}  // namespace vyn
