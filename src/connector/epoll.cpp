// SPDX-License-Identifier: Apache-2.0

#include "connector/epoll.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vyn {

Epoll::Epoll() : mFd(epoll_create1(EPOLL_CLOEXEC)), mError(isOpen() ? 0 : errno) {}

Epoll::~Epoll() {
    if (isOpen()) close(number());
}

int Epoll::add(EpollToken token, uint32_t interest) {
    return control(EPOLL_CTL_ADD, token, interest);
}

int Epoll::modify(EpollToken token, uint32_t interest) {
    return control(EPOLL_CTL_MOD, token, interest);
}

void Epoll::remove(int fd) { control(EPOLL_CTL_DEL, {fd, 0}, 0); }

int Epoll::wait(epoll_event* events, int timeoutMs) {
    return epoll_wait(number(), events, kMostEvents, timeoutMs);
}

int Epoll::replaceBy(Epoll& other, bool isLost) {
    if (isLost) {
        mFd.store(other.mFd.exchange(-1, std::memory_order_relaxed), std::memory_order_release);
        return 0;
    }
    return dup3(other.number(), number(), O_CLOEXEC) < 0 ? errno : 0;
}

int Epoll::control(int operation, EpollToken token, uint32_t interest) {
    epoll_event event{};
    event.events = interest;
    event.data.u64 = token.pack();
    return epoll_ctl(number(), operation, token.fd, &event) == 0 ? 0 : errno;
}

}  // namespace vyn
