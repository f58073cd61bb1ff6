// SPDX-License-Identifier: Apache-2.0

#include <vyn/config.h>
#include <vyn/unix_device.h>

#include "device/empty_read.h"
#include "device/own_socket.h"

namespace vyn {

UnixDevice::UnixDevice() = default;

UnixDevice::UnixDevice(const UnixSocket& socket) : mSocket(socket) {}

UnixDevice::UnixDevice(const UnixSocket* socket) : mSocket(socket) {}

UnixDevice::~UnixDevice() = default;

const char* UnixDevice::getClassName() { return "UnixDevice"; }

void UnixDevice::onDataArrival(int) {
    const int count = readAndReport();
    if (count < 1 && !io::outlivesEmptyRead(mSocket.fd(), count)) reportEnd(count);
}

int UnixDevice::write(const void* data, int len) {
    return writeToSocket(this, mSocket, mSocket.type() == UnixSocket::STREAM, data, len);
}

void UnixDevice::onReady() {
    if (config::isAsyncWritting() && mSocket.type() == UnixSocket::STREAM) {
        mSocket.setNonBlock(true);
    }
}

int UnixDevice::getFd() { return mSocket.fd(); }

void UnixDevice::disconnect() {
    mSocket.reset();
    onDisconnected();
}

void UnixDevice::dump(std::ostream& os) { os << "addr=" << getAddress(); }

int UnixDevice::read(char* buf, int len) { return mSocket.recv(buf, len); }

std::string UnixDevice::getAddress() { return mSocket.getRemoteAddr(); }

}  // namespace vyn
