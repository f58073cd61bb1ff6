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

Epoll::Epoll() : mFd(epoll_create1(EPOLL_CLOEXEC)) {}

Epoll::~Epoll() {
    if (mFd >= 0) close(mFd);
}

bool Epoll::add(EpollToken token) {
    epoll_event event = makeEvent(token, false);
    if (epoll_ctl(mFd, EPOLL_CTL_ADD, token.fd, &event) == 0) return true;
    if (errno == EEXIST && epoll_ctl(mFd, EPOLL_CTL_MOD, token.fd, &event) == 0) return true;
    VYN_LOG_ERRNO_ERROR << "can not watch fd " << token.fd << ", nothing will be read from it.";
    return false;
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

void Epoll::reopen() {
    if (mFd >= 0) close(mFd);
    mFd = epoll_create1(EPOLL_CLOEXEC);
}

}  // namespace vyn
