// SPDX-License-Identifier: Apache-2.0

#include "connector/epoll.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vyn {

Epoll::Epoll() : mFd(epoll_create1(EPOLL_CLOEXEC)), mError(mFd < 0 ? errno : 0) {}

Epoll::~Epoll() {
    if (mFd >= 0) close(mFd);
}

int Epoll::add(EpollToken token, uint32_t interest) {
    return control(EPOLL_CTL_ADD, token, interest);
}

int Epoll::modify(EpollToken token, uint32_t interest) {
    return control(EPOLL_CTL_MOD, token, interest);
}

void Epoll::remove(int fd) { control(EPOLL_CTL_DEL, {fd, 0}, 0); }

int Epoll::wait(epoll_event* events, int most, int timeoutMs) {
    return epoll_wait(mFd, events, most, timeoutMs);
}

void Epoll::replaceBy(Epoll& other, bool isLost) {
    if (!isLost) close(mFd);
    mFd = std::exchange(other.mFd, -1);
}

int Epoll::control(int operation, EpollToken token, uint32_t interest) {
    epoll_event event{};
    event.events = interest;
    event.data.u64 = token.pack();
    return epoll_ctl(mFd, operation, token.fd, &event) == 0 ? 0 : errno;
}

}  // namespace vyn
