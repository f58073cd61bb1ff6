// SPDX-License-Identifier: Apache-2.0

#include "echo/server.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "support/bench.h"

namespace echo {

namespace {

int bindUnix(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    bench::require(path.size() < sizeof address.sun_path, "the path");
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    bench::require(bind(fd, generic, sizeof address) == 0, "bind");
    return fd;
}

int bindTcp(int& port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    bench::require(bind(fd, generic, length) == 0, "bind");
    bench::require(getsockname(fd, generic, &length) == 0, "getsockname");
    port = ntohs(address.sin_port);
    return fd;
}

}  // namespace

void announce(const Place& place, int port) {
    bench::require(write(place.announcement, &port, sizeof port) == sizeof port, "announce");
}

int listenAt(const Place& place) {
    int port = 0;
    const int fd = place.isUnix() ? bindUnix(place.path) : bindTcp(port);
    bench::require(listen(fd, SOMAXCONN) == 0, "listen");
    announce(place, port);
    return fd;
}

}  // namespace echo
