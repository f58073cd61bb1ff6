// What stays as it was set when a socket gets an address, and what a false readiness does.

#include <gtest/gtest.h>
#include <linux/net_tstamp.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <vyn/net_device.h>

#include <chrono>

#include "support/application.h"
#include "support/devices.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::Connection;
using testing::Tcp4Transport;

template <typename Value>
Value option(int fd, int level, int name) {
    Value value{};
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, name, &value, &length), 0);
    return value;
}

template <typename Value>
void setOption(int fd, int level, int name, Value value) {
    EXPECT_EQ(setsockopt(fd, level, name, &value, sizeof value), 0);
}

TEST(UdpSocket, SendsToAnIpv6AddressWithTheSettingsOfItsDescriptor) {
    Socket server(Socket::UDP);
    if (!server.setHostIP("::1") || !server.bind(0)) GTEST_SKIP() << "this host has no IPv6";
    SocketAddress address;
    ASSERT_TRUE(SocketAddress::parse("::1", server.getHostPort(), &address));
    Socket client(Socket::UDP);
    setOption(client.fd(), SOL_SOCKET, SO_BROADCAST, 1);
    setOption(client.fd(), SOL_SOCKET, SO_PRIORITY, 3);
    setOption(client.fd(), SOL_SOCKET, SO_SNDTIMEO, timeval{7, 0});
    EXPECT_EQ(client.sendTo("x", 1, address), 1) << Socket::lastErrorMessage();
    EXPECT_EQ(option<int>(client.fd(), SOL_SOCKET, SO_BROADCAST), 1);
    EXPECT_EQ(option<int>(client.fd(), SOL_SOCKET, SO_PRIORITY), 3);
    EXPECT_EQ(option<timeval>(client.fd(), SOL_SOCKET, SO_SNDTIMEO).tv_sec, 7);
    char byte = 0;
    EXPECT_EQ(server.recvFrom(&byte, 1, 10000, nullptr), 1);
}

TEST(UnixSocket, KeepsItsSendTimeoutOverConnecting) {
    Connection<testing::UnixTransport> other;
    UnixSocket client(UnixSocket::STREAM);
    setOption(client.fd(), SOL_SOCKET, SO_SNDTIMEO, timeval{7, 0});
    ASSERT_TRUE(client.connect(other.listener.getLocalAddr()));
    EXPECT_EQ(option<timeval>(client.fd(), SOL_SOCKET, SO_SNDTIMEO).tv_sec, 7);
}

TEST(Socket, TcpConnectionsDoNotDelayUnlessTheyAreToldTo) {
    Connection<Tcp4Transport> connection;
    EXPECT_EQ(option<int>(connection.client.fd(), IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(option<int>(connection.server.fd(), IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_TRUE(connection.client.setNoDelay(false));
    EXPECT_EQ(option<int>(connection.client.fd(), IPPROTO_TCP, TCP_NODELAY), 0);
}

// A connection with the time of something sent in its error queue: ready, but not to be read.
struct NoticedConnection : Connection<Tcp4Transport> {
    NoticedConnection() {
        setOption(server.fd(), SOL_SOCKET, SO_TIMESTAMPING,
                  static_cast<int>(SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE));
        EXPECT_EQ(server.send("x", 1), 1);
        EXPECT_TRUE(testing::awaitReady(server.fd(), POLLERR));
    }
};

TEST(Socket, ReceivingEndsInTimeAndDoesNotSpinWhereOnlyANoticeWaits) {
    NoticedConnection connection;
    const auto cpuMs = [] { return std::clock() * 1000 / CLOCKS_PER_SEC; };
    const auto began = cpuMs();
    char byte = 0;
    EXPECT_EQ(connection.server.recv(&byte, 1, 200), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_LT(cpuMs() - began, 100);
}

TEST(NetDevice, GoesOnBehindANotice) {
    NoticedConnection connection;
    NetDevice device(&connection.server);
    testing::ReceivedWorker worker(&device);
    testing::RecordingExecutor executor;  // a disconnection would be fatal without
    worker.attach(nullptr, &executor);
    device.onDataArrival(device.getFd());
    EXPECT_FALSE(testing::awaitReady(device.getFd(), 0)) << "the notice is still there";
}

TEST(DatagramDevice, OutlivesAnEmptyDatagramAndARefusal) {
    Socket server(Socket::UDP);
    ASSERT_TRUE(server.setHostIP("127.0.0.1") && server.bind(0));
    Socket peer(Socket::UDP);
    ASSERT_TRUE(peer.connect("127.0.0.1", server.getHostPort()));
    ASSERT_TRUE(server.connect("127.0.0.1", peer.getHostPort()));
    const int port = peer.getHostPort();
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
    Socket again(Socket::UDP);
    ASSERT_TRUE(again.setHostIP("127.0.0.1") && again.bind(port));
    ASSERT_TRUE(again.connect("127.0.0.1", device.socket().getHostPort()));
    again.send("y", 1);
    serve();
    EXPECT_EQ(worker.chunks, std::vector<std::string>{"y"});
    EXPECT_TRUE(worker.isValid());
    shutdown(device.getFd(), SHUT_RD);
    serve();
    EXPECT_FALSE(worker.isValid());
}

}  // namespace
}  // namespace vyn
