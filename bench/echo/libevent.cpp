// SPDX-License-Identifier: Apache-2.0

#include <event2/event.h>
#include <sys/socket.h>
#include <unistd.h>

#include "echo/server.h"
#include "support/bench.h"

namespace echo {

namespace {

struct Connection {
    event* readable;
};

void onReadable(evutil_socket_t fd, short, void* argument) {
    static char buffer[kBufferBytes];
    const ssize_t count = recv(fd, buffer, sizeof buffer, 0);
    if (count > 0) {
        bench::require(send(fd, buffer, static_cast<size_t>(count), MSG_NOSIGNAL) == count, "send");
        return;
    }
    auto* connection = static_cast<Connection*>(argument);
    event_free(connection->readable);
    delete connection;
    close(fd);
}

void onConnection(evutil_socket_t listener, short, void* argument) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    auto* base = static_cast<event_base*>(argument);
    auto* connection = new Connection;
    connection->readable = event_new(base, fd, EV_READ | EV_PERSIST, onReadable, connection);
    event_add(connection->readable, nullptr);
}

}  // namespace

// Plain events: its buffered ones copy every byte twice.
void serveLibevent(const Place& place) {
    event_base* base = event_base_new();
    event* incoming = event_new(base, listenAt(place), EV_READ | EV_PERSIST, onConnection, base);
    event_add(incoming, nullptr);
    event_base_dispatch(base);
}

}  // namespace echo
