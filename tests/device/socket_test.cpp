// SPDX-License-Identifier: Apache-2.0

#include <netinet/tcp.h>
#include <sys/file.h>
#include <sys/un.h>
#include <vyn/socket.h>
#include <vyn/unix_socket.h>

#include "support/support.h"
#include "support/transports.h"

namespace vyn {
namespace {

using namespace testing;

// What every stream socket does, whatever it runs over.
template <typename Transport>
struct StreamSocket : ::testing::Test {
    Connection<Transport> connection;
    typename Transport::SocketType& client = connection.client;
    typename Transport::SocketType& server = connection.server;
    char byte = 0;
};
using Transports = ::testing::Types<Tcp4Transport, UnixTransport>;
TYPED_TEST_SUITE(StreamSocket, Transports, );

bool isCloseOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }
bool isNonBlocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }

TYPED_TEST(StreamSocket, ReceivingWaitsAtMostItsTimeoutWhetherItBlocksOrNot) {
    for (const bool nonBlock : {false, true}) {
        this->server.setNonBlock(nonBlock);
        EXPECT_EQ(this->server.recv(&this->byte, 1, 0), -1);
        EXPECT_EQ(this->server.recv(&this->byte, 1, 20), -1);
        EXPECT_EQ(errno, EAGAIN);
        std::thread late([&] { this->client.send("x", 1); });
        EXPECT_EQ(this->server.recv(&this->byte, 1, 10000), 1);
        late.join();
    }
    EXPECT_EQ(this->server.recv(&this->byte, 1), -1);  // non-blocking: without waiting
}

TYPED_TEST(StreamSocket, CopiesOwnADescriptorEachAndTakingOverEmptiesTheSource) {
    using SocketType = typename TypeParam::SocketType;
    const int before = openDescriptors();
    {
        const SocketType& source = this->client;
        SocketType taken(&source), moved(this->server);
        moved.move(taken);
        moved.move(moved);
        SocketType last(std::move(moved)), copy(last), assigned;
        assigned = copy;
        EXPECT_EQ(openDescriptors(), before + 2);
        last.reset();
        copy.reset();
        const SocketType adopted = SocketType::fromDescriptor(assigned.release());
        EXPECT_FALSE(source.isValid() || assigned.isValid());
        EXPECT_EQ(write(adopted.fd(), "x", 1) + this->server.recv(&this->byte, 1, 10000), 2);
        using Other = std::conditional_t<std::is_same_v<SocketType, Socket>, UnixSocket, Socket>;
        EXPECT_FALSE(Other::fromDescriptor(adopted.fd()).isValid());
        EXPECT_EQ(errno, EAFNOSUPPORT);
    }
    EXPECT_EQ(openDescriptors(), before - 1);
}

TYPED_TEST(StreamSocket, RefusesWhatItCannotDo) {
    EXPECT_FALSE(this->connection.listener.accept().isValid());
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_FALSE(isNonBlocking(this->server.fd()));
    EXPECT_EQ(this->client.send("x", -1), -1);
    EXPECT_EQ(this->client.recv(&this->byte, -1, 1000), -1);
    EXPECT_EQ(this->client.lastErrorMessage(), "[22] Invalid argument");
    EXPECT_EQ(this->client.send("", 0), 0);
    typename TypeParam::SocketType none;
    EXPECT_EQ(none.send("x", 1), -1);
    EXPECT_EQ(none.recv(&this->byte, 1, 1000), -1);
    EXPECT_FALSE(none.listen() || none.setNonBlock(true) || none.accept().isValid());
}

Socket boundTo(Socket::Type type, const std::string& ip, int port = 0) {
    Socket socket(type);
    socket.setHostIP(ip);
    return socket.bind(port) ? socket : Socket();
}

int option(const SocketBase& socket, int level, int name) {
    timeval value{};  // of which a number is the beginning
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(socket.fd(), level, name, &value, &length), 0);
    return static_cast<int>(value.tv_sec);
}

TEST(Socket, FamilyFollowsTheAddressAndSettingsStay) {
    if (!boundTo(Socket::TCP, "::1").isValid()) GTEST_SKIP() << "this host has no IPv6";
    const timeval limit{7, 0};
    Socket socket(Socket::TCP);
    socket.setReceiveBufferSize(8000);
    EXPECT_TRUE(socket.setKeepAlive(true, 30, 5, 3));
    setsockopt(socket.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    EXPECT_TRUE(socket.setHostIP("::1") && socket.bind(0) && socket.listen());
    EXPECT_EQ(socket.getHostIP(), "::1");
    EXPECT_EQ(option(socket, SOL_SOCKET, SO_RCVBUF), 16000);
    EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPIDLE), 30);
    EXPECT_EQ(option(socket, SOL_SOCKET, SO_SNDTIMEO), 7);
    EXPECT_TRUE(isCloseOnExec(socket.fd()));
    Socket client(Socket::TCP);
    EXPECT_TRUE(client.connect("::1", socket.getHostPort()));
    EXPECT_EQ(client.getRemoteIP(), "::1");
    EXPECT_EQ(option(client, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(option(socket.accept(), IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_FALSE(socket.connect("127.0.0.1", 1));  // a bound socket cannot change

    Socket server = boundTo(Socket::UDP, "::1"), sender(Socket::UDP);
    SocketAddress address;
    ASSERT_TRUE(SocketAddress::parse("::1", server.getHostPort(), &address));
    EXPECT_EQ(sender.sendTo("x", 1, address), 1) << Socket::lastErrorMessage();
    char byte = 0;
    EXPECT_EQ(server.recvFrom(&byte, 1, 10000, nullptr), 1);
}

TEST(Socket, TakesNumericAddressesAndPortsInRangeOnly) {
    for (const char* ip : {"localhost", "256.0.0.1", "127.1", "::1::", "fe80::1%nosuchif"}) {
        Socket socket(Socket::TCP);
        EXPECT_FALSE(socket.setHostIP(ip)) << ip;
        EXPECT_FALSE(socket.connect(ip, 1)) << ip;
        EXPECT_EQ(errno, EINVAL);
    }
    for (const int port : {-1, 65536}) {
        EXPECT_FALSE(Socket(Socket::TCP).bind(port));
        EXPECT_FALSE(Socket(Socket::TCP).connect("127.0.0.1", port));
    }
    EXPECT_EQ(boundTo(Socket::TCP, "").getHostIP(), "0.0.0.0");
    SocketAddress address;
    if (!SocketAddress::parse("fe80::1%lo", 7, &address)) GTEST_SKIP() << "no interface lo";
    EXPECT_EQ(address.ip() + std::to_string(address.port()), "fe80::1%lo7");
}

TEST(Socket, TakesNoPortInUseButOneThatFadesOut) {
    Connection<Tcp4Transport> connection;
    const int port = connection.listener.getHostPort();
    EXPECT_FALSE(boundTo(Socket::TCP, "127.0.0.1", port).isValid());
    connection.listener.reset();
    connection.server.reset();  // closes first: its end of the connection lingers on the port
    char byte = 0;
    EXPECT_EQ(connection.client.recv(&byte, 1, 10000), 0);
    connection.client.reset();
    EXPECT_TRUE(boundTo(Socket::TCP, "127.0.0.1", port).isValid());
}

TEST(Socket, ConnectsAfterARefusalAndATimeoutAndInTheBackground) {
    Socket listener = boundTo(Socket::TCP, "127.0.0.1");
    const int port = listener.getHostPort();
    Socket client(Socket::TCP);
    EXPECT_FALSE(client.connect("127.0.0.1", port));
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(client.getRemotePort(), 0);
    EXPECT_FALSE(isNonBlocking(client.fd()));

    FullBacklog full(listener);
    EXPECT_FALSE(client.connect("127.0.0.1", port, 30));
    EXPECT_EQ(errno, ETIMEDOUT);
    listener.listen();
    EXPECT_TRUE(client.connect("127.0.0.1", port));
    EXPECT_TRUE(awaitReady(full.first.fd(), POLLOUT));
}

struct UnixSocketTest : ::testing::Test {
    TemporaryFolder folder;
    UnixSocket boundTo(UnixSocket::Type type, const std::string& addr) {
        UnixSocket socket(type);
        return socket.bind(addr) ? socket : UnixSocket();
    }
};

TEST_F(UnixSocketTest, TellsWhoIsAtTheOtherEnd) {
    for (const std::string& name : {folder / "listener", "@vyn-test-" + folder.path()}) {
        UnixSocket listener = boundTo(UnixSocket::STREAM, name);
        ASSERT_TRUE(listener.listen());
        EXPECT_EQ(listener.getLocalAddr(), name);
        EXPECT_FALSE(boundTo(UnixSocket::STREAM, name).isValid());
        EXPECT_FALSE(listener.peerCredentials().has_value());
        UnixSocket client = boundTo(UnixSocket::STREAM, name + "-client");
        ASSERT_TRUE(client.connect(name));
        UnixSocket server = listener.accept();
        EXPECT_EQ(server.getRemoteAddr(), name + "-client");
        EXPECT_EQ(client.getRemoteAddr(), name);
        const auto peer = server.peerCredentials();
        EXPECT_TRUE(peer.has_value() && peer->pid == getpid() && peer->uid == geteuid());
    }
    EXPECT_EQ(folder.entries(), 2);
    UnixSocket server = boundTo(UnixSocket::DGRAM, folder / "server"), sender(UnixSocket::DGRAM);
    EXPECT_EQ(sender.getRemoteAddr() + sender.getLocalAddr(), "");
    ASSERT_TRUE(sender.bind(folder / "sender"));
    EXPECT_EQ(sender.sendTo("", 0, folder / "server"), 0);
    char byte = 0;
    std::string from;
    EXPECT_EQ(server.recvFrom(&byte, 1, 10000, &from), 0);
    EXPECT_EQ(from, folder / "sender");
}

TEST_F(UnixSocketTest, RefusesWhatCannotBeAnAddressWithOneLine) {
    const size_t longest = sizeof sockaddr_un{}.sun_path - 1;
    const std::string fits = folder / std::string(longest - folder.path().size() - 1, 'x');
    UnixSocket socket(UnixSocket::STREAM);
    LogCapture log;
    EXPECT_FALSE(socket.bind(fits + "x"));
    EXPECT_EQ(log.count("[36] File name too long. no address of a unix socket: " + fits + "x"), 1);
    for (const std::string& text : {std::string(), std::string("@"), std::string("a\0b", 3)}) {
        log.clear();
        EXPECT_FALSE(socket.bind(text) || socket.connect(text));
        EXPECT_EQ(socket.sendTo("x", 1, text), -1);
        EXPECT_EQ(log.count("[22] Invalid argument. no address of a unix socket:"), 3);
    }
    EXPECT_TRUE(socket.bind(fits));
    EXPECT_EQ(socket.getLocalAddr(), fits);
}

TEST_F(UnixSocketTest, ReplacesTheFileOfASocketThatIsGoneAndNothingElse) {
    for (const auto type : {UnixSocket::STREAM, UnixSocket::DGRAM}) {
        EXPECT_TRUE(boundTo(type, folder / "stale").isValid());
    }
    LogCapture log;
    const int lock = open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_TRUE(boundTo(UnixSocket::STREAM, folder / "stale").isValid());
    EXPECT_EQ(log.count("the lock of folder " + folder.path() + "/ is held for more than"), 1);
    close(lock);
    folder.write("file", "precious");
    ASSERT_EQ(symlink((folder / "stale").c_str(), (folder / "link").c_str()), 0);
    UnixSocket listener = boundTo(UnixSocket::STREAM, folder / "listening");
    ASSERT_TRUE(listener.listen());
    UnixSocket datagrams = boundTo(UnixSocket::DGRAM, folder / "datagrams");
    for (const char* name : {"file", "link", "listening", "datagrams"}) {
        for (const auto type : {UnixSocket::STREAM, UnixSocket::DGRAM}) {
            EXPECT_FALSE(boundTo(type, folder / name).isValid());
            EXPECT_EQ(errno, EADDRINUSE) << name;
        }
    }
    EXPECT_EQ(folder.read("file"), "precious");
    EXPECT_EQ(folder.entries(), 5);
    EXPECT_FALSE(listener.accept().isValid());  // no rival's probe waits here
}

}  // namespace
}  // namespace vyn
