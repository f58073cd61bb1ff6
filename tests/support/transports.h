// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/net_device.h>
#include <vyn/unix_device.h>

#include <memory>
#include <string>

#include "support/descriptors.h"
#include "support/files.h"

namespace vyn::testing {

// How the tests that all stream transports share make listeners and clients of one transport.
struct Tcp4Transport {
    using SocketType = Socket;
    using DeviceType = NetDevice;
    using ListenerType = ListenerDevice;

    std::unique_ptr<ListenerDevice> listenerDevice() {
        return std::make_unique<ListenerDevice>(0, "127.0.0.1");
    }

    Socket client(const Socket& listener) {
        Socket socket(Socket::TCP);
        return socket.connect("127.0.0.1", listener.getHostPort()) ? socket : Socket();
    }
};

struct UnixTransport {
    using SocketType = UnixSocket;
    using DeviceType = UnixDevice;
    using ListenerType = UnixListenerDevice;

    std::unique_ptr<UnixListenerDevice> listenerDevice() {
        return std::make_unique<UnixListenerDevice>(folder / "socket");
    }

    UnixSocket client(const UnixSocket& listener) {
        UnixSocket socket(UnixSocket::STREAM);
        return socket.connect(listener.getLocalAddr()) ? socket : UnixSocket();
    }

    TemporaryFolder folder;
};

// Makes a bound socket listen with a backlog that is full, which leaves further attempts
// unanswered.
struct FullBacklog {
    explicit FullBacklog(Socket& bound) {
        ::listen(bound.fd(), 0);
        for (Socket* each : {&first, &second, &third}) {
            EXPECT_TRUE(each->startConnect("127.0.0.1", bound.getHostPort()));
        }
        EXPECT_TRUE(awaitReadable(bound.fd()));
    }
    Socket first{Socket::TCP}, second{Socket::TCP}, third{Socket::TCP};
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
