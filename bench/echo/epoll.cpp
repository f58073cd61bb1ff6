// SPDX-License-Identifier: Apache-2.0

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "echo/server.h"
#include "support/bench.h"

namespace echo {

namespace {

constexpr int kEvents = 64;

void watch(int epoll, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    bench::require(epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0, "epoll_ctl");
}

void answer(int fd, char* buffer) {
    const ssize_t count = recv(fd, buffer, kBufferBytes, 0);
    if (count > 0) {
        bench::require(send(fd, buffer, static_cast<size_t>(count), MSG_NOSIGNAL) == count, "send");
    } else {
        close(fd);
    }
}

}  // namespace

// The limit: nothing but the system calls.
void serveEpoll(const Place& place) {
    static char buffer[kBufferBytes];
    epoll_event events[kEvents];
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    const int listener = listenAt(place);
    watch(epoll, listener);
    for (;;) {
        const int count = epoll_wait(epoll, events, kEvents, -1);
        for (int i = 0; i < count; ++i) {
            if (events[i].data.fd != listener) {
                answer(events[i].data.fd, buffer);
                continue;
            }
            const int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd >= 0) watch(epoll, fd);
        }
    }
}

}  // namespace echo
