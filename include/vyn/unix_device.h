// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include <vyn/device.h>
#include <vyn/unix_socket.h>

namespace vyn {

// The device of one Unix-domain connection, or of a datagram socket, which gives one datagram a
// read: of more than 2048 bytes the rest is lost, and an empty one is logged at debug level only.
//
// With asynchronous writing on (see config), a stream becomes non-blocking when its worker is added
// to a connector: a peer that does not read cannot block the loop.
class VYN_API UnixDevice : public BaseDevice {
  public:
    // Without a connection.
    UnixDevice();
    // Has a descriptor of its own for the same connection.
    explicit UnixDevice(const UnixSocket& socket);
    // Takes the socket's descriptor over, and leaves it without. For the socket of
    // Executor::onNewConnection().
    explicit UnixDevice(const UnixSocket* socket);
    // Closes the socket.
    ~UnixDevice() override;
    UnixDevice(const UnixDevice&) = delete;
    UnixDevice& operator=(const UnixDevice&) = delete;

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    int write(const void* data, int len) override;
    void onReady() override;
    int getFd() override;
    void disconnect() override;
    // "addr=" and getAddress()
    void dump(std::ostream& os) override;
    int read(char* buf, int len) override;
    // The peer's address; empty for a peer that has none, as most clients.
    virtual std::string getAddress();

    // For options, credentials and the addresses of both ends. While the worker is in a loop it
    // keeps its descriptor; after a change of that the worker is added again.
    [[nodiscard]] UnixSocket& socket() { return mSocket; }

  protected:
    // The connection, or the listening socket.
    UnixSocket mSocket;
};

// Accepts Unix-domain connections, one each time its descriptor is ready, and reports each through
// Executor::onNewConnection() with its own descriptor and a pointer to the accepted UnixSocket. The
// executor takes it over by building a UnixDevice from that pointer, as with ListenerDevice;
// otherwise it is closed. When accepting failed it is as for ListenerDevice.
class VYN_API UnixListenerDevice : public UnixDevice {
  public:
    // Listens on `addr`; processes of every user may connect to a socket file. Failing to bind, or
    // to open the file to everyone, is fatal.
    explicit UnixListenerDevice(const std::string& addr);
    // As ListenerDevice's of the same form; the socket file is left as it is.
    explicit UnixListenerDevice(const UnixSocket* bound);

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    // The address it listens on.
    std::string getAddress() override;

  private:
    bool beginListening();
};

}  // namespace vyn
