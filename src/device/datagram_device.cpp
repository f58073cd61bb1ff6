// SPDX-License-Identifier: Apache-2.0

#include <vyn/datagram_device.h>
#include <vyn/logging.h>

#include <cerrno>
#include <utility>

#include "connector/life_watch.h"
#include "device/empty_read.h"
#include "device/own_socket.h"
#include "device/socket_io.h"

namespace vyn {

namespace {

constexpr int kLongestDatagram = 65535;
// Each time the loop looks: enough for a burst, and others wait no longer for it.
constexpr int kMostAtOnce = 16;

}  // namespace

DatagramDevice::DatagramDevice(Function onDatagram)
    : mOnDatagram(std::make_shared<const Function>(std::move(onDatagram))), mSocket(Socket::UDP) {
    mSocket.setNonBlock(true);
}

DatagramDevice::DatagramDevice(const Socket* socket, Function onDatagram)
    : mOnDatagram(std::make_shared<const Function>(std::move(onDatagram))), mSocket(socket) {
    mSocket.setNonBlock(true);
}

DatagramDevice::~DatagramDevice() = default;

bool DatagramDevice::bind(int port, const std::string& ip) {
    // There may have been no descriptor when it was made.
    const bool isOpen =
        mSocket.isValid() || (mSocket.create(Socket::UDP) && mSocket.setNonBlock(true));
    const bool isBound = isOpen && mSocket.setHostIP(ip) && mSocket.bind(port);
    if (!isBound) VYN_LOG_ERRNO_INFO << "bind [" << ip << ":" << port << "] failed.";
    descriptorsChanged();  // the number is the same, the socket may be another
    return isBound;
}

bool DatagramDevice::sendTo(const void* data, int size, const SocketAddress& to) {
    const bool mayReopen = to.family() == AF_INET6 && mSocket.getHostPort() == 0;
    const bool isSent = mSocket.sendTo(data, size, to) == size;
    const int error = errno;
    if (mayReopen) descriptorsChanged();
    errno = error;
    return isSent;
}

const char* DatagramDevice::getClassName() { return "DatagramDevice"; }

void DatagramDevice::onDataArrival(int) {
    const std::shared_ptr<const Function> onDatagram = mOnDatagram;
    const LifeWatch life(static_cast<Device*>(this));
    for (int i = 0; i < kMostAtOnce && !life.ended(); ++i) {
        const int size = report(*onDatagram);
        if (size >= 0) continue;
        const bool isOver = i > 0 && io::wouldBlock();
        if (!isOver && !io::outlivesEmptyRead(mSocket.fd(), size)) onDisconnected();
        return;
    }
}

// Returns the size of what it reported, or -1 with errno.
int DatagramDevice::report(const Function& onDatagram) {
    char bytes[kLongestDatagram];
    SocketAddress from;
    socklen_t length = SocketAddress::kCapacity;
    const int size =
        io::receive(mSocket.fd(), bytes, sizeof bytes, MSG_DONTWAIT, from.raw(), &length);
    if (size >= 0 && onDatagram != nullptr) onDatagram({bytes, size, from});
    return size;
}

int DatagramDevice::write(const void* data, int len) {
    return writeToSocket(this, mSocket, false, data, len);
}

int DatagramDevice::getFd() { return mSocket.fd(); }

void DatagramDevice::disconnect() {
    mSocket.reset();
    onDisconnected();
}

void DatagramDevice::dump(std::ostream& os) {
    os << "[" << mSocket.getHostIP() << ":" << mSocket.getHostPort() << "]";
}

}  // namespace vyn
