// SPDX-License-Identifier: Apache-2.0

#include <vyn/socket_base.h>

#include <cstring>
#include <utility>

#include "device/accept.h"
#include "device/socket_io.h"

namespace vyn {

void SocketBase::reset() { setDescriptor(-1); }

int SocketBase::release() { return std::exchange(mFd, -1); }

bool SocketBase::listen() {
    if (!setNonBlock(true) || ::listen(mFd, SOMAXCONN) != 0) return false;
    io::reserveSpareDescriptor();
    return true;
}

int SocketBase::send(const void* data, int size) { return io::send(mFd, data, size, nullptr, 0); }

int SocketBase::recv(void* buffer, int size, int timeoutMs) {
    return io::receiveWithin(mFd, buffer, size, timeoutMs, nullptr, nullptr);
}

int SocketBase::recv(void* buffer, int size) {
    return io::receive(mFd, buffer, size, 0, nullptr, nullptr);
}

bool SocketBase::shutdownSend() { return ::shutdown(mFd, SHUT_WR) == 0; }

bool SocketBase::setNonBlock(bool nonBlock) { return io::setNonBlocking(mFd, nonBlock); }

bool SocketBase::setSendBufferSize(int bytes) {
    return io::setOption(mFd, SOL_SOCKET, SO_SNDBUF, bytes);
}

bool SocketBase::setReceiveBufferSize(int bytes) {
    return io::setOption(mFd, SOL_SOCKET, SO_RCVBUF, bytes);
}

std::string SocketBase::lastErrorMessage() {
    return "[" + std::to_string(errno) + "] " + std::strerror(errno);
}

SocketBase::SocketBase(const SocketBase& other) : mFd(io::duplicate(other.mFd)) {}

SocketBase& SocketBase::operator=(const SocketBase& other) {
    if (this != &other) setDescriptor(io::duplicate(other.mFd));
    return *this;
}

SocketBase::~SocketBase() { io::closeDescriptor(mFd); }

void SocketBase::takeDescriptor(const SocketBase& other) {
    if (this == &other) return;
    setDescriptor(other.mFd);
    other.mFd = -1;
}

void SocketBase::setDescriptor(int fd) {
    io::closeDescriptor(mFd);
    mFd = fd;
}

}  // namespace vyn
