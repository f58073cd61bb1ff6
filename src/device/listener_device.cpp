// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>
#include <vyn/net_device.h>

#include <cerrno>

#include "device/accept.h"

namespace vyn {

namespace {

std::string localAddress(const Socket& socket) {
    return socket.getHostIP() + ":" + std::to_string(socket.getHostPort());
}

}  // namespace

ListenerDevice::ListenerDevice() = default;

ListenerDevice::ListenerDevice(const Socket* bound) : NetDevice(bound) {
    if (mSocket.isValid()) beginListening();
}

ListenerDevice::ListenerDevice(int port, const std::string& ip) {
    if (port < 0) return;
    const bool b = bindTo(port, ip);
    VYN_CHECK(b == true) << "bind [" << ip << ":" << port << "] failed. "
                         << logging::ErrnoText{errno};
    if (b) {
        beginListening();
    } else {
        mSocket.listen();
    }
}

const char* ListenerDevice::getClassName() { return "ListenerDevice"; }

void ListenerDevice::onDataArrival(int fd) {
    VYN_CHECK(fd == mSocket.fd());
    Socket accepted = mSocket.accept();
    const int error = errno;
    if (!accepted.isValid()) restFor(io::msUntilNextAccept(error));
    VYN_LOG_VERBOSE << "\033[1;33;40m"
                    << "Run here! "
                    << "accepted = " << accepted.fd();
    errno = error;
    onNewConnection(getFd(), &accepted);
}

bool ListenerDevice::listen(int port, const std::string& ip) {
    stopListening();
    if (!bindTo(port, ip)) {
        VYN_LOG_ERRNO_INFO << "bind [" << ip << ":" << port << "] failed.";
        mSocket.reset();
        return false;
    }
    if (!mSocket.listen()) {
        VYN_LOG_ERRNO_INFO << "listen on " << localAddress(mSocket) << " failed.";
        mSocket.reset();
        return false;
    }
    descriptorsChanged();
    VYN_LOG_INFO << "listen on " << localAddress(mSocket);
    return true;
}

void ListenerDevice::beginListening() {
    const bool listening = mSocket.listen();
    VYN_CHECK(listening == true) << "listen on " << localAddress(mSocket) << " failed. "
                                 << logging::ErrnoText{errno};
    if (listening) VYN_LOG_DEBUG << "listen on " << localAddress(mSocket);
}

// The loop forgets the descriptor while it is open: a copy of it may keep the kernel watching it.
void ListenerDevice::stopListening() {
    const Socket former(&mSocket);
    descriptorsChanged();
}

bool ListenerDevice::bindTo(int port, const std::string& ip) {
    return mSocket.create(Socket::TCP) && mSocket.setHostIP(ip) && mSocket.bind(port);
}

}  // namespace vyn
