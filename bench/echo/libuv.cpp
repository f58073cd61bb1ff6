// SPDX-License-Identifier: Apache-2.0

#include <arpa/inet.h>
#include <uv.h>

#include <cstring>

#include "echo/server.h"
#include "support/bench.h"

namespace echo {

namespace {

union Connection {
    uv_handle_t handle;
    uv_stream_t stream;
    uv_tcp_t tcp;
    uv_pipe_t pipe;
};

// A write for what the peer did not take at once.
struct LateWrite {
    uv_write_t request;
    std::string rest;
};

void closeIt(Connection* connection) {
    uv_close(&connection->handle,
             [](uv_handle_t* handle) { delete reinterpret_cast<Connection*>(handle); });
}

// All reads share a buffer: it is written before the next one.
void lendBuffer(uv_handle_t*, size_t, uv_buf_t* buffer) {
    static char bytes[kBufferBytes];
    *buffer = uv_buf_init(bytes, sizeof bytes);
}

void writeLater(uv_stream_t* stream, const char* bytes, size_t count) {
    auto* write = new LateWrite{{}, std::string(bytes, count)};
    uv_buf_t buffer = uv_buf_init(&write->rest[0], static_cast<unsigned>(count));
    uv_write(&write->request, stream, &buffer, 1,
             [](uv_write_t* request, int) { delete reinterpret_cast<LateWrite*>(request); });
}

void onRead(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
    if (count < 0) closeIt(reinterpret_cast<Connection*>(stream));
    if (count <= 0) return;
    const auto size = static_cast<size_t>(count);
    uv_buf_t data = uv_buf_init(buffer->base, static_cast<unsigned>(size));
    const int written = uv_try_write(stream, &data, 1);
    const size_t sent = written < 0 ? 0 : static_cast<size_t>(written);
    if (sent < size) writeLater(stream, buffer->base + sent, size - sent);
}

void initialize(uv_loop_t* loop, Connection* connection, bool isUnix) {
    isUnix ? uv_pipe_init(loop, &connection->pipe, 0) : uv_tcp_init(loop, &connection->tcp);
}

void onConnection(uv_stream_t* listener, int status) {
    if (status != 0) return;
    auto* connection = new Connection;
    initialize(listener->loop, connection, listener->type == UV_NAMED_PIPE);
    if (uv_accept(listener, &connection->stream) == 0) {
        uv_read_start(&connection->stream, lendBuffer, onRead);
    } else {
        closeIt(connection);
    }
}

int bindTcp(uv_tcp_t* tcp) {
    sockaddr_in address;
    uv_ip4_addr("127.0.0.1", 0, &address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    bench::require(uv_tcp_bind(tcp, generic, 0) == 0, "bind");
    int length = sizeof address;
    uv_tcp_getsockname(tcp, generic, &length);
    return ntohs(address.sin_port);
}

}  // namespace

void serveLibuv(const Place& place) {
    uv_loop_t* loop = uv_default_loop();
    Connection listener;
    initialize(loop, &listener, place.isUnix());
    int port = 0;
    if (place.isUnix()) {
        bench::require(uv_pipe_bind(&listener.pipe, place.path.c_str()) == 0, "bind");
    } else {
        port = bindTcp(&listener.tcp);
    }
    bench::require(uv_listen(&listener.stream, SOMAXCONN, onConnection) == 0, "listen");
    announce(place, port);
    uv_run(loop, UV_RUN_DEFAULT);
}

}  // namespace echo
