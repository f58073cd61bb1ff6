// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include <vyn/device.h>
#include <vyn/socket.h>

namespace vyn {

// The device of one TCP connection, or of a UDP socket, which gives one datagram a read. A datagram
// of more than 2048 bytes is cut. An empty one, and the news that one of ours was not delivered,
// are logged at debug level only.
//
// A descriptor that is reported readable without having anything to read, which is rare, holds the
// loop for up to a second. Notices in the socket's error queue, such as those that SO_TIMESTAMPING
// asks for, do not: the device drops them. Who wants them overrides onDataArrival().
//
// With asynchronous writing on (see config), a stream becomes non-blocking when its worker is added
// to a connector: a peer that does not read cannot block the loop.
class VYN_API NetDevice : public BaseDevice {
  public:
    // Without a connection.
    NetDevice();
    // Has a descriptor of its own for the same connection.
    explicit NetDevice(const Socket& socket);
    // Takes the socket's descriptor over, and leaves it without. For the socket of
    // Executor::onNewConnection().
    explicit NetDevice(const Socket* socket);
    // Closes the socket.
    ~NetDevice() override;
    NetDevice(const NetDevice&) = delete;
    NetDevice& operator=(const NetDevice&) = delete;

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    int write(const void* data, int len) override;
    void onReady() override;
    int getFd() override;
    void disconnect() override;
    // "[REMOTE-IP:PORT=>LOCAL-IP:PORT]"
    void dump(std::ostream& os) override;
    int read(char* buf, int len) override;

    // For options, and for the addresses of both ends. While the worker is in a loop it keeps its
    // descriptor; after a change of that the worker is added again.
    [[nodiscard]] Socket& socket() { return mSocket; }

  protected:
    // The connection, or the listening socket.
    Socket mSocket;
};

// Accepts TCP connections, one each time its descriptor is ready, and reports each through
// Executor::onNewConnection() with its own descriptor and a pointer to the accepted Socket:
//
//     void onNewConnection(vyn::Worker*, int, void* data) override {
//         const auto* accepted = static_cast<const vyn::Socket*>(data);
//         if (!accepted->isValid()) return;  // accepting failed
//         auto* worker = new vyn::Worker(new vyn::NetDevice(accepted), parser);
//         ...
//     }
//
// A socket that is not taken over during the call is closed. When accepting failed it is invalid,
// and errno tells why; the loop looks at the listener again some milliseconds later.
class VYN_API ListenerDevice : public NetDevice {
  public:
    // Does not listen until listen() is called.
    ListenerDevice();
    // Takes over a bound socket, such as one from Socket::fromDescriptor(), or one that got options
    // before it was bound (setReusePort(), setV6Only()), and listens. Failing to is fatal. One
    // without a descriptor, or null, leaves the device unbound.
    explicit ListenerDevice(const Socket* bound);
    // Listens on `ip`, or on every address when that is empty; port 0 takes any free one. Failing
    // to bind is fatal. A negative port leaves the device unbound.
    ListenerDevice(int port, const std::string& ip);

    const char* getClassName() override;
    void onDataArrival(int fd) override;

    // Listens there instead, also while its worker is in a loop. False when that fails, which is
    // logged; errno then tells why, and the device has no socket.
    bool listen(int port, const std::string& ip);

  private:
    void beginListening();
    void stopListening();
    bool bindTo(int port, const std::string& ip);
};

}  // namespace vyn
