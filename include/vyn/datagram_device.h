// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>
#include <string>

#include <vyn/device.h>
#include <vyn/socket.h>

namespace vyn {

// A UDP socket whose datagrams are reported one by one, each with its sender: for services that
// talk to many peers, or look for them. (NetDevice passes the bytes of datagrams to a parser
// instead.)
//
//     vyn::DatagramDevice device([&](const vyn::DatagramDevice::Datagram& datagram) {
//         device.sendTo("pong", 4, datagram.from);
//     });
//     if (!device.bind(7000)) return;
//     vyn::Worker worker(&device, nullptr);
//     connector.addWorkerLocked(&worker, &executor);
//
// Broadcast, groups and shared addresses are options of socket(). News of a datagram that was not
// delivered is logged at debug level; the device goes on.
class VYN_API DatagramDevice : public Device {
  public:
    // What has come; valid for the length of the call only.
    struct Datagram {
        const void* data;    // its bytes
        int size;            // 0 for an empty one
        SocketAddress from;  // who sent it
    };
    // Is given each datagram.
    using Function = std::function<void(const Datagram&)>;

    // With an open socket that is not bound. `onDatagram` is called on the loop's thread; it may
    // delete the device.
    explicit DatagramDevice(Function onDatagram);
    // Takes over a UDP socket, which becomes non-blocking.
    DatagramDevice(const Socket* socket, Function onDatagram);
    // Closes the socket.
    ~DatagramDevice() override;
    DatagramDevice(const DatagramDevice&) = delete;
    DatagramDevice& operator=(const DatagramDevice&) = delete;

    // As Socket::setHostIP() and bind(), before its worker is added. False when that fails, which
    // is logged.
    bool bind(int port, const std::string& ip = "");
    // Sends one datagram, whole and without waiting. False, with errno, when it could not be sent:
    // EAGAIN where the kernel has no room for it now.
    bool sendTo(const void* data, int size, const SocketAddress& to);
    // For options, and for the address.
    [[nodiscard]] Socket& socket() { return mSocket; }

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    // One datagram to the peer that socket().connect() names; -1 without.
    int write(const void* data, int len) override;
    int getFd() override;
    // Closes the socket and reports onDisconnected().
    void disconnect() override;
    // "[LOCAL-IP:PORT]"
    void dump(std::ostream& os) override;

  private:
    int report(const Function& onDatagram);

    // Shared, so that a call may outlive the device.
    const std::shared_ptr<const Function> mOnDatagram;
    Socket mSocket;
};

}  // namespace vyn
