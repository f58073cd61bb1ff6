// SPDX-License-Identifier: Apache-2.0

#include "echo/load.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "support/bench.h"
#include "support/machine.h"

namespace echo {

namespace {

constexpr int kEvents = 256;

int connectUnix(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    bench::require(connect(fd, generic, sizeof address) == 0, "connect");
    return fd;
}

int connectTcp(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    bench::require(connect(fd, generic, sizeof address) == 0, "connect");
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // Closing resets, so that thousands of closed connections do not linger into the next run.
    const linger reset{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    return fd;
}

}  // namespace

Load::Load(const std::string& path, int port, int connections, size_t messageBytes)
    : mEpoll(epoll_create1(EPOLL_CLOEXEC)), mMessage(messageBytes, 'x') {
    for (int i = 0; i < connections; ++i) {
        const int fd = path.empty() ? connectTcp(port) : connectUnix(path);
        mConnections.push_back({fd, 0, 0});
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = static_cast<uint64_t>(i);
        bench::require(epoll_ctl(mEpoll, EPOLL_CTL_ADD, fd, &event) == 0, "epoll_ctl");
    }
    run(connections, 0);
}

Load::~Load() {
    for (const Connection& connection : mConnections) close(connection.fd);
    close(mEpoll);
}

std::vector<int64_t> Load::run(int active, int64_t durationNs) {
    std::vector<int64_t> times;
    times.reserve(1000000);
    const int64_t begin = bench::now();
    for (int i = 0; i < active; ++i) send(mConnections[static_cast<size_t>(i)], bench::now());
    int underWay = active;
    while (underWay > 0) {
        epoll_event events[kEvents];
        const int count = epoll_wait(mEpoll, events, kEvents, 10000);
        if (count < 1) bench::fail("no answer in 10 s");
        for (int i = 0; i < count; ++i) {
            Connection& connection = mConnections[events[i].data.u64];
            if (!receive(connection)) continue;
            const int64_t now = bench::now();
            times.push_back(now - connection.sentAt);
            now - begin < durationNs ? send(connection, now) : void(--underWay);
        }
    }
    return times;
}

void Load::send(Connection& connection, int64_t now) {
    connection.sentAt = now;
    connection.missing = mMessage.size();
    const ssize_t sent = ::send(connection.fd, mMessage.data(), mMessage.size(), MSG_NOSIGNAL);
    bench::require(sent == static_cast<ssize_t>(mMessage.size()), "send");
}

// True when the message is back.
bool Load::receive(Connection& connection) {
    char buffer[4096];
    const ssize_t count = recv(connection.fd, buffer, sizeof buffer, MSG_DONTWAIT);
    bench::require(count > 0 && static_cast<size_t>(count) <= connection.missing, "recv");
    connection.missing -= static_cast<size_t>(count);
    return connection.missing == 0;
}

}  // namespace echo
