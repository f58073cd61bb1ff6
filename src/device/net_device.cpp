// SPDX-License-Identifier: Apache-2.0

#include <vyn/config.h>
#include <vyn/net_device.h>

#include "device/empty_read.h"
#include "device/own_socket.h"
#include "device/socket_io.h"

namespace vyn {

NetDevice::NetDevice() = default;

NetDevice::NetDevice(const Socket& socket) : mSocket(socket) {}

NetDevice::NetDevice(const Socket* socket) : mSocket(socket) {}

NetDevice::~NetDevice() = default;

const char* NetDevice::getClassName() { return "NetDevice"; }

void NetDevice::onDataArrival(int) {
    const int count = readAndReport();
    if (count < 1 && !io::outlivesEmptyRead(mSocket.fd(), count)) reportEnd(count);
}

int NetDevice::write(const void* data, int len) {
    return writeToSocket(this, mSocket, mSocket.type() == Socket::TCP, data, len);
}

void NetDevice::onReady() {
    if (config::isAsyncWritting() && mSocket.type() == Socket::TCP) mSocket.setNonBlock(true);
}

int NetDevice::getFd() { return mSocket.fd(); }

void NetDevice::disconnect() {
    mSocket.reset();
    onDisconnected();
}

void NetDevice::dump(std::ostream& os) {
    os << "[" << mSocket.getRemoteIP() << ":" << mSocket.getRemotePort() << "=>"
       << mSocket.getHostIP() << ":" << mSocket.getHostPort() << "]";
}

int NetDevice::read(char* buf, int len) {
    constexpr int kTimeoutMs = 1000;
    const int count = io::receive(mSocket.fd(), buf, len, MSG_DONTWAIT, nullptr, nullptr);
    const bool mayCome = count < 0 && io::wouldBlock() && !io::hasOnlyNotices(mSocket.fd());
    return mayCome ? mSocket.recv(buf, len, kTimeoutMs) : count;
}

}  // namespace vyn
