#pragma once

#include <vyn/net_device.h>
#include <vyn/unix_device.h>

#include <memory>
#include <string>

#include "support/descriptors.h"
#include "support/temporary_folder.h"

namespace vyn::testing {

// How the tests that all stream transports share make listeners and clients of one transport.
template <bool kIsV6>
struct TcpTransport {
    using SocketType = Socket;
    using DeviceType = NetDevice;
    using ListenerType = ListenerDevice;

    static constexpr const char* kHost = kIsV6 ? "::1" : "127.0.0.1";

    static bool isAvailable() {
        Socket probe(Socket::TCP);
        probe.setHostIP(kHost);
        return probe.bind(0);
    }

    Socket listener() {
        Socket socket(Socket::TCP);
        socket.setHostIP(kHost);
        return socket.bind(0) && socket.listen() ? socket : Socket();
    }

    std::unique_ptr<ListenerDevice> listenerDevice() {
        return std::make_unique<ListenerDevice>(0, kHost);
    }

    Socket client(const Socket& listener) {
        Socket socket(Socket::TCP);
        return socket.connect(kHost, listener.getHostPort()) ? socket : Socket();
    }
};
using Tcp4Transport = TcpTransport<false>;
using Tcp6Transport = TcpTransport<true>;

struct UnixTransport {
    using SocketType = UnixSocket;
    using DeviceType = UnixDevice;
    using ListenerType = UnixListenerDevice;

    static bool isAvailable() { return true; }

    UnixSocket listener() {
        UnixSocket socket(UnixSocket::STREAM);
        return socket.bind(newPath()) && socket.listen() ? socket : UnixSocket();
    }

    std::unique_ptr<UnixListenerDevice> listenerDevice() {
        return std::make_unique<UnixListenerDevice>(newPath());
    }

    UnixSocket client(const UnixSocket& listener) {
        UnixSocket socket(UnixSocket::STREAM);
        return socket.connect(listener.getLocalAddr()) ? socket : UnixSocket();
    }

    std::string newPath() { return folder / ("socket" + std::to_string(++sockets)); }

    TemporaryFolder folder;
    int sockets = 0;
};

// A listener and one connection to it.
template <typename Transport>
struct Connection {
    using SocketType = typename Transport::SocketType;

    Connection()
        : device(transport.listenerDevice()),
          listener(device->socket()),
          client(transport.client(listener)) {
        awaitReadable(listener.fd());
        server = listener.accept();
    }

    Transport transport;
    std::unique_ptr<typename Transport::ListenerType> device;
    SocketType& listener;
    SocketType client;
    SocketType server;
};

}  // namespace vyn::testing
