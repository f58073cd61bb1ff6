// SPDX-License-Identifier: Apache-2.0

#include <array>
#include <asio.hpp>
#include <memory>

#include "echo/server.h"

namespace echo {

namespace {

template <class Socket>
class Connection : public std::enable_shared_from_this<Connection<Socket>> {
  public:
    explicit Connection(Socket socket) : mSocket(std::move(socket)) {}

    void read() {
        auto self = this->shared_from_this();
        mSocket.async_read_some(asio::buffer(mBytes),
                                [self = std::move(self)](std::error_code error, size_t count) {
                                    if (!error) self->write(count);
                                });
    }

  private:
    void write(size_t count) {
        auto self = this->shared_from_this();
        asio::async_write(mSocket, asio::buffer(mBytes, count),
                          [self = std::move(self)](std::error_code error, size_t) {
                              if (!error) self->read();
                          });
    }

    Socket mSocket;
    std::array<char, 4096> mBytes;
};

template <class Acceptor>
void accept(Acceptor& acceptor) {
    using Socket = typename Acceptor::protocol_type::socket;
    acceptor.async_accept([&acceptor](std::error_code error, Socket socket) {
        if (!error) std::make_shared<Connection<Socket>>(std::move(socket))->read();
        accept(acceptor);
    });
}

template <class Acceptor>
void serve(asio::io_context& context, Acceptor& acceptor) {
    accept(acceptor);
    context.run();
}

}  // namespace

void serveAsio(const Place& place) {
    asio::io_context context(
        ASIO_CONCURRENCY_HINT_UNSAFE);  // one thread does it all, without locks
    if (place.isUnix()) {
        using Protocol = asio::local::stream_protocol;
        Protocol::acceptor acceptor(context, Protocol::endpoint(place.path));
        announce(place, 0);
        serve(context, acceptor);
    } else {
        using Protocol = asio::ip::tcp;
        const Protocol::endpoint anyPort(asio::ip::address_v4::loopback(), 0);
        Protocol::acceptor acceptor(context, anyPort);
        announce(place, acceptor.local_endpoint().port());
        serve(context, acceptor);
    }
}

}  // namespace echo
