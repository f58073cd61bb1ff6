// SPDX-License-Identifier: Apache-2.0

// What stays as it was set when a socket gets an address, and what a false readiness does.

#include <gtest/gtest.h>
#include <linux/net_tstamp.h>
#include <netinet/tcp.h>

#include <ctime>

#include "support/support.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::Connection;

int option(const SocketBase& socket, int level, int name) {
    timeval value{};  // of which a number is the beginning
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(socket.fd(), level, name, &value, &length), 0);
    return static_cast<int>(value.tv_sec);
}

template <typename Value>
void setOption(const SocketBase& socket, int name, Value value) {
    EXPECT_EQ(setsockopt(socket.fd(), SOL_SOCKET, name, &value, sizeof value), 0);
}

TEST(Socket, KeepsItsSettingsOverGettingAnAddress) {
    Socket server(Socket::UDP), client(Socket::UDP);
    if (!server.setHostIP("::1") || !server.bind(0)) GTEST_SKIP() << "this host has no IPv6";
    SocketAddress address;
    ASSERT_TRUE(SocketAddress::parse("::1", server.getHostPort(), &address));
    setOption(client, SO_BROADCAST, 1);
    setOption(client, SO_SNDTIMEO, timeval{7, 0});
    EXPECT_EQ(client.sendTo("x", 1, address), 1) << Socket::lastErrorMessage();
    EXPECT_EQ(option(client, SOL_SOCKET, SO_BROADCAST), 1);
    EXPECT_EQ(option(client, SOL_SOCKET, SO_SNDTIMEO), 7);
    char byte = 0;
    EXPECT_EQ(server.recvFrom(&byte, 1, 10000, nullptr), 1);

    Connection<testing::UnixTransport> other;
    UnixSocket local(UnixSocket::STREAM);
    setOption(local, SO_SNDTIMEO, timeval{7, 0});
    ASSERT_TRUE(local.connect(other.listener.getLocalAddr()));
    EXPECT_EQ(option(local, SOL_SOCKET, SO_SNDTIMEO), 7);
}

TEST(NetDevice, NeitherWaitsNorEndsWhereOnlyANoticeIsToBeRead) {
    Connection<testing::Tcp4Transport> connection;
    EXPECT_EQ(option(connection.client, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(option(connection.server, IPPROTO_TCP, TCP_NODELAY), 1);
    const int notices = SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
    if (setsockopt(connection.server.fd(), SOL_SOCKET, SO_TIMESTAMPING, &notices, sizeof notices) !=
        0) {
        GTEST_SKIP() << "no notices of sent bytes here";
    }
    EXPECT_EQ(connection.server.send("x", 1), 1);
    ASSERT_TRUE(testing::awaitReady(connection.server.fd(), POLLERR));
    const std::clock_t began = std::clock();
    char byte = 0;
    EXPECT_EQ(connection.server.recv(&byte, 1, 200), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_LT(std::clock() - began, CLOCKS_PER_SEC / 10);  // it did not spin
    NetDevice device(&connection.server);
    Worker worker(&device, nullptr);  // a disconnection would be fatal without an executor
    device.onDataArrival(device.getFd());
    pollfd entry{device.getFd(), POLLIN, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 0) << "the notice is still there";
}

TEST(NetDevice, OfDatagramsOutlivesAnEmptyOneAndARefusal) {
    Socket server(Socket::UDP), peer(Socket::UDP);
    ASSERT_TRUE(server.setHostIP("127.0.0.1") && server.bind(0));
    ASSERT_TRUE(peer.connect("127.0.0.1", server.getHostPort()));
    ASSERT_TRUE(server.connect("127.0.0.1", peer.getHostPort()));
    NetDevice device(&server);
    testing::ReceivedWorker worker(&device);
    testing::RecordingExecutor executor;
    worker.attach(nullptr, &executor);
    const auto serve = [&] {
        ASSERT_TRUE(testing::awaitReadable(device.getFd()));
        device.onDataArrival(device.getFd());
    };
    peer.send("", 0);
    serve();
    peer.reset();
    device.write("x", 1);  // refused by ICMP
    serve();
    EXPECT_TRUE(worker.isValid());
    shutdown(device.getFd(), SHUT_RD);
    serve();
    EXPECT_FALSE(worker.isValid());
}

}  // namespace
}  // namespace vyn
