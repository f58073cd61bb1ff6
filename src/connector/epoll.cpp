#include "connector/epoll.h"

#include <unistd.h>
#include <vyn/logging.h>

#include <cerrno>

namespace vyn {

namespace {

epoll_event makeEvent(EpollToken token, bool write) {
    epoll_event event{};
    event.events = EPOLLIN | (write ? EPOLLOUT : 0u);
    event.data.u64 = token.pack();
    return event;
}

}  // namespace

Epoll::Epoll() : mFd(epoll_create1(EPOLL_CLOEXEC)) {
    if (mFd < 0) VYN_LOG_ERRNO_ERROR << "epoll_create1 fail. a connector can not work.";
}

Epoll::~Epoll() {
    if (mFd >= 0) close(mFd);
}

int Epoll::add(EpollToken token) {
    epoll_event event = makeEvent(token, false);
    return epoll_ctl(mFd, EPOLL_CTL_ADD, token.fd, &event) == 0 ? 0 : errno;
}

void Epoll::modify(EpollToken token, bool write) {
    epoll_event event = makeEvent(token, write);
    epoll_ctl(mFd, EPOLL_CTL_MOD, token.fd, &event);
}

void Epoll::remove(int fd) {
    epoll_event unused{};
    epoll_ctl(mFd, EPOLL_CTL_DEL, fd, &unused);
}

int Epoll::wait(epoll_event* events, int most, int timeoutMs) {
    return epoll_wait(mFd, events, most, timeoutMs);
}

bool Epoll::reopen() {
    const int fresh = epoll_create1(EPOLL_CLOEXEC);
    if (fresh < 0) return false;
    close(mFd);
    mFd = fresh;
    return true;
}

}  // namespace vyn
