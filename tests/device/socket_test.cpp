#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <vyn/socket.h>

#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::Connection;
using testing::Tcp4Transport;
using testing::Tcp6Transport;

int option(const Socket& socket, int level, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    getsockopt(socket.fd(), level, name, &value, &length);
    return value;
}

Socket boundTo(Socket::Type type, const std::string& ip) {
    Socket socket(type);
    socket.setHostIP(ip);
    return socket.bind(0) ? socket : Socket();
}

TEST(Socket, KnowsBothAddresses) {
    Connection<Tcp4Transport> connection;
    EXPECT_EQ(connection.listener.getHostIP(), "127.0.0.1");
    EXPECT_EQ(connection.listener.getRemoteIP(), "");
    EXPECT_EQ(connection.listener.getRemotePort(), 0);
    EXPECT_EQ(connection.server.getRemoteIP(), "127.0.0.1");
    EXPECT_EQ(connection.server.getRemotePort(), connection.client.getHostPort());
    EXPECT_EQ(connection.server.getHostPort(), connection.listener.getHostPort());
    EXPECT_EQ(connection.client.getRemotePort(), connection.listener.getHostPort());
}

TEST(Socket, FamilyFollowsTheAddressAndSettingsStay) {
    if (!Tcp6Transport::isAvailable()) GTEST_SKIP() << "this host has no IPv6";
    Socket socket(Socket::TCP);
    const int fd = socket.fd();
    socket.setNoDelay(true);
    socket.setReusePort(true);
    socket.setReceiveBufferSize(8000);
    socket.setNonBlock(true);
    EXPECT_TRUE(socket.setKeepAlive(true, 30, 5, 3));
    socket.setHostIP("::1");
    ASSERT_TRUE(socket.bind(0));
    EXPECT_EQ(socket.fd(), fd);
    EXPECT_EQ(socket.getHostIP(), "::1");
    EXPECT_EQ(option(socket, SOL_SOCKET, SO_DOMAIN), AF_INET6);
    EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(option(socket, SOL_SOCKET, SO_REUSEPORT), 1);
    EXPECT_EQ(option(socket, SOL_SOCKET, SO_RCVBUF), 16000);
    EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPIDLE), 30);
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);

    EXPECT_FALSE(socket.connect("127.0.0.1", socket.getHostPort()));
    EXPECT_EQ(errno, EAFNOSUPPORT);  // a bound socket cannot change
}

TEST(Socket, ReadsNumericAddressesOnly) {
    for (const char* ip : {"localhost", "127.0.0.1.5", "256.0.0.1", "127.1", "::1::", "1.2.3.4%lo",
                           "fe80::1%nosuchif", " 127.0.0.1"}) {
        Socket socket(Socket::TCP);
        EXPECT_FALSE(socket.setHostIP(ip)) << ip;
        EXPECT_FALSE(socket.bind(0)) << ip;
        EXPECT_EQ(socket.lastErrorMessage(), "[22] Invalid argument");
        EXPECT_FALSE(socket.connect(ip, 1)) << ip;
        EXPECT_EQ(socket.getHostPort(), 0);
    }
    Socket socket(Socket::TCP);
    EXPECT_FALSE(socket.connect("", 1));
    EXPECT_TRUE(socket.setHostIP(""));
    ASSERT_TRUE(socket.bind(0));
    EXPECT_EQ(socket.getHostIP(), "0.0.0.0");
}

TEST(Socket, RefusesPortsOutOfRange) {
    Socket socket(Socket::TCP);
    for (const int port : {-1, 65536, 1 << 20}) {
        EXPECT_FALSE(socket.bind(port));
        EXPECT_EQ(errno, EINVAL);
        EXPECT_FALSE(socket.connect("127.0.0.1", port));
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST(SocketAddress, KeepsTheInterfaceOfALinkLocalAddress) {
    SocketAddress address;
    if (!SocketAddress::parse("fe80::1%lo", 7, &address)) GTEST_SKIP() << "no interface lo";
    EXPECT_EQ(address.ip(), "fe80::1%lo");
    EXPECT_EQ(address.port(), 7);
}

TEST(Socket, BindsAPortInUseOnlyWhenBothAllowIt) {
    Socket first = Tcp4Transport().listener();
    Socket second(Socket::TCP);
    second.setHostIP("127.0.0.1");
    EXPECT_FALSE(second.bind(first.getHostPort()));
    EXPECT_EQ(errno, EADDRINUSE);

    Socket sharing[2] = {Socket(Socket::TCP), Socket(Socket::TCP)};
    for (Socket& socket : sharing) {
        socket.setReusePort(true);
        socket.setHostIP("127.0.0.1");
        EXPECT_TRUE(socket.bind(sharing[0].getHostPort()));
        EXPECT_TRUE(socket.listen());
    }
}

TEST(Socket, BindsThePortOfAListenerWhoseConnectionsFadeOut) {
    Connection<Tcp4Transport> connection;
    const int port = connection.listener.getHostPort();
    connection.listener.reset();
    connection.server.reset();  // closes first: its end of the connection lingers on the port
    char byte = 0;
    EXPECT_EQ(connection.client.recv(&byte, 1, 10000), 0);
    connection.client.reset();
    Socket restarted(Socket::TCP);
    restarted.setHostIP("127.0.0.1");
    EXPECT_TRUE(restarted.bind(port)) << restarted.lastErrorMessage();
}

TEST(Socket, ReportsAResetAndStillKnowsThePeer) {
    Connection<Tcp4Transport> connection;
    const int port = connection.client.getHostPort();
    const linger abortive{1, 0};
    setsockopt(connection.client.fd(), SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
    connection.client.reset();
    char byte = 0;
    EXPECT_EQ(connection.server.recv(&byte, 1, 10000), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(connection.server.send("x", 1), -1);
    connection.server.reset();
    EXPECT_EQ(connection.server.getRemoteIP(), "127.0.0.1");
    EXPECT_EQ(connection.server.getRemotePort(), port);
}

TEST(Socket, IsRefusedWhereNobodyListens) {
    Socket silent = boundTo(Socket::TCP, "127.0.0.1");
    Socket client(Socket::TCP);
    EXPECT_FALSE(client.connect("127.0.0.1", silent.getHostPort()));
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(client.getRemotePort(), 0);
    EXPECT_EQ(fcntl(client.fd(), F_GETFL) & O_NONBLOCK, 0);
    silent.listen();
    EXPECT_TRUE(client.connect("127.0.0.1", silent.getHostPort()));
}

// A listener whose backlog is full leaves further attempts unanswered.
struct FullListener {
    FullListener() : socket(boundTo(Socket::TCP, "127.0.0.1")) {
        ::listen(socket.fd(), 0);
        for (int i = 0; i < 3; ++i) {
            fillers.emplace_back(Socket::TCP);
            fillers.back().startConnect("127.0.0.1", socket.getHostPort());
        }
        testing::awaitReadable(socket.fd());
    }
    Socket socket;
    std::vector<Socket> fillers;
};

TEST(Socket, AbandonsAnAttemptToConnectThatTakesTooLong) {
    FullListener full;
    Socket ready = Tcp4Transport().listener();
    Socket client(Socket::TCP);
    EXPECT_FALSE(client.connect("127.0.0.1", full.socket.getHostPort(), 30));
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_TRUE(client.connect("127.0.0.1", ready.getHostPort()));
}

TEST(Socket, ConnectsInTheBackground) {
    Socket listener = Tcp4Transport().listener();
    Socket client(Socket::TCP);
    ASSERT_TRUE(client.startConnect("127.0.0.1", listener.getHostPort()));
    EXPECT_EQ(client.getRemotePort(), listener.getHostPort());
    ASSERT_TRUE(testing::awaitReady(client.fd(), POLLOUT));
    EXPECT_EQ(client.send("x", 1), 1);
    ASSERT_TRUE(testing::awaitReadable(listener.fd()));
    Socket server = listener.accept();
    char byte = 0;
    EXPECT_EQ(server.recv(&byte, 1, 10000), 1);
}

TEST(UdpSocket, CarriesOneDatagramARead) {
    Socket server = boundTo(Socket::UDP, "127.0.0.1");
    Socket client(Socket::UDP);
    ASSERT_TRUE(client.connect("127.0.0.1", server.getHostPort()));
    EXPECT_EQ(client.send("one", 3), 3);
    EXPECT_EQ(client.send("", 0), 0);
    EXPECT_EQ(client.send("three", 5), 5);

    char buffer[16] = {};
    SocketAddress from;
    EXPECT_EQ(server.recvFrom(buffer, sizeof buffer, 10000, &from), 3);
    EXPECT_EQ(from.port(), client.getHostPort());
    EXPECT_EQ(server.recv(buffer, sizeof buffer, 10000), 0);
    EXPECT_EQ(server.recv(buffer, 2, 10000), 2);
    EXPECT_EQ(server.recv(buffer, sizeof buffer, 0), -1);  // the rest of a datagram is lost

    EXPECT_EQ(server.sendTo("back", 4, from), 4);
    EXPECT_EQ(client.recv(buffer, sizeof buffer, 10000), 4);
    EXPECT_EQ(std::string(buffer, 4), "back");
}

TEST(UdpSocket, DoesNotShareItsPortUnasked) {
    Socket first = boundTo(Socket::UDP, "127.0.0.1");
    Socket second(Socket::UDP);
    second.setHostIP("127.0.0.1");
    EXPECT_FALSE(second.bind(first.getHostPort()));
}

}  // namespace
}  // namespace vyn
