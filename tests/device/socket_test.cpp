#include <netinet/tcp.h>
#include <sys/un.h>
#include <vyn/socket.h>
#include <vyn/unix_socket.h>

#include <csignal>

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
        for (const int timeoutMs : {20, 0}) {
            errno = 0;
            EXPECT_EQ(this->server.recv(&this->byte, 1, timeoutMs), -1);
            EXPECT_EQ(errno, EAGAIN);
        }
        std::thread late([&] { this->client.send("x", 1); });
        EXPECT_EQ(this->server.recv(&this->byte, 1, 10000), 1);
        late.join();
    }
    EXPECT_EQ(this->server.recv(&this->byte, 1), -1);  // non-blocking: without waiting
}

TYPED_TEST(StreamSocket, SignalsDoNotEndAWait) {
    struct sigaction interrupt {};
    struct sigaction previous {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupt, &previous);
    std::thread receiver([&] { EXPECT_EQ(this->server.recv(&this->byte, 1, -1), 1); });
    for (int i = 0; i < 20; ++i) {
        pthread_kill(receiver.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    this->client.send("x", 1);
    receiver.join();
    sigaction(SIGUSR1, &previous, nullptr);
}

TYPED_TEST(StreamSocket, CopiesOwnADescriptorEachAndTakingOverEmptiesTheSource) {
    using SocketType = typename TypeParam::SocketType;
    const int before = openDescriptors();
    const int fd = this->client.fd();
    {
        const SocketType& source = this->client;
        SocketType taken(&source);
        EXPECT_EQ(source.fd(), -1);
        SocketType moved(this->server);
        moved.move(taken);
        moved.move(moved);
        SocketType last(std::move(moved));
        EXPECT_EQ(last.fd(), fd);
        EXPECT_EQ(openDescriptors(), before);
        SocketType copy(last);
        SocketType assigned;
        assigned = copy;
        assigned = *&assigned;
        EXPECT_EQ(openDescriptors(), before + 2);
        last.reset();
        copy.reset();
        EXPECT_EQ(assigned.send("x", 1), 1);  // the last one keeps the connection open
        EXPECT_EQ(this->server.recv(&this->byte, 1, 10000), 1);
    }
    EXPECT_EQ(openDescriptors(), before - 1);
    EXPECT_FALSE(SocketType(static_cast<const SocketType*>(nullptr)).isValid());
}

TYPED_TEST(StreamSocket, AcceptingNeverBlocksAndGivesBlockingSockets) {
    EXPECT_FALSE(this->connection.listener.accept().isValid());
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_FALSE(isNonBlocking(this->server.fd()));
    EXPECT_TRUE(isCloseOnExec(this->server.fd()));
    EXPECT_TRUE(isCloseOnExec(this->connection.listener.fd()));
}

TYPED_TEST(StreamSocket, RefusesNegativeSizesAndEveryCallWithoutADescriptor) {
    EXPECT_EQ(this->client.send("x", -1), -1);
    EXPECT_EQ(this->client.recv(&this->byte, -1, 1000), -1);
    EXPECT_EQ(this->client.lastErrorMessage(), "[22] Invalid argument");
    EXPECT_EQ(this->client.send("", 0), 0);
    typename TypeParam::SocketType none;
    EXPECT_EQ(none.send("x", 1), -1);
    EXPECT_EQ(none.recv(&this->byte, 1, 1000), -1);
    EXPECT_EQ(none.lastErrorMessage(), "[9] Bad file descriptor");
    EXPECT_FALSE(none.listen());
    EXPECT_FALSE(none.setNonBlock(true));
    EXPECT_FALSE(none.accept().isValid());
    EXPECT_FALSE((typename TypeParam::SocketType(none)).isValid());
}

Socket boundTo(Socket::Type type, const std::string& ip, int port = 0) {
    Socket socket(type);
    socket.setHostIP(ip);
    return socket.bind(port) ? socket : Socket();
}

TEST(Socket, FamilyFollowsTheAddressAndSettingsStay) {
    if (!boundTo(Socket::TCP, "::1").isValid()) GTEST_SKIP() << "this host has no IPv6";
    Socket socket(Socket::TCP);
    const int fd = socket.fd();
    socket.setReusePort(true);
    socket.setReceiveBufferSize(8000);
    EXPECT_TRUE(socket.setKeepAlive(true, 30, 5, 3));
    EXPECT_TRUE(socket.setHostIP("::1") && socket.bind(0) && socket.listen());
    EXPECT_EQ(socket.fd(), fd);
    EXPECT_EQ(socket.getHostIP(), "::1");
    struct {
        int level;
        int name;
        int value;
    } const settings[] = {{SOL_SOCKET, SO_REUSEPORT, 1},
                          {SOL_SOCKET, SO_RCVBUF, 16000},
                          {IPPROTO_TCP, TCP_KEEPIDLE, 30},
                          {IPPROTO_TCP, TCP_KEEPCNT, 3}};
    for (const auto& setting : settings) {
        int value = -1;
        socklen_t length = sizeof value;
        getsockopt(fd, setting.level, setting.name, &value, &length);
        EXPECT_EQ(value, setting.value) << setting.name;
    }
    EXPECT_TRUE(isCloseOnExec(fd));
    Socket client(Socket::TCP);
    EXPECT_TRUE(client.connect("::1", socket.getHostPort()));
    EXPECT_EQ(client.getRemoteIP(), "::1");
    EXPECT_FALSE(socket.connect("127.0.0.1", 1));  // a bound socket cannot change
}

TEST(Socket, TakesNumericAddressesAndPortsInRangeOnly) {
    for (const char* ip : {"localhost", "127.0.0.1.5", "256.0.0.1", "127.1", "::1::", "1.2.3.4%lo",
                           "fe80::1%nosuchif", " 127.0.0.1"}) {
        Socket socket(Socket::TCP);
        EXPECT_FALSE(socket.setHostIP(ip)) << ip;
        EXPECT_FALSE(socket.bind(0)) << ip;
        EXPECT_FALSE(socket.connect(ip, 1)) << ip;
        EXPECT_EQ(errno, EINVAL);
    }
    for (const int port : {-1, 65536, 1 << 20}) {
        EXPECT_FALSE(Socket(Socket::TCP).bind(port));
        EXPECT_FALSE(Socket(Socket::TCP).connect("127.0.0.1", port));
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_FALSE(Socket(Socket::TCP).connect("", 1));
    EXPECT_EQ(boundTo(Socket::TCP, "").getHostIP(), "0.0.0.0");
    SocketAddress address;
    if (!SocketAddress::parse("fe80::1%lo", 7, &address)) GTEST_SKIP() << "no interface lo";
    EXPECT_EQ(address.ip(), "fe80::1%lo");
    EXPECT_EQ(address.port(), 7);
}

TEST(Socket, SharesAPortInUseOnlyWhenBothAllowItButTakesOneThatFadesOut) {
    Connection<Tcp4Transport> connection;
    const int port = connection.listener.getHostPort();
    EXPECT_FALSE(boundTo(Socket::TCP, "127.0.0.1", port).isValid());
    connection.listener.reset();
    connection.server.reset();  // closes first: its end of the connection lingers on the port
    char byte = 0;
    EXPECT_EQ(connection.client.recv(&byte, 1, 10000), 0);
    connection.client.reset();
    EXPECT_TRUE(boundTo(Socket::TCP, "127.0.0.1", port).isValid());

    Socket sharing[2] = {Socket(Socket::TCP), Socket(Socket::TCP)};
    for (Socket& socket : sharing) {
        socket.setReusePort(true);
        socket.setHostIP("127.0.0.1");
        EXPECT_TRUE(socket.bind(sharing[0].getHostPort()) && socket.listen());
    }
    Socket udp = boundTo(Socket::UDP, "127.0.0.1");
    EXPECT_FALSE(boundTo(Socket::UDP, "127.0.0.1", udp.getHostPort()).isValid());
}

TEST(Socket, ConnectsAfterARefusalAndATimeoutAndInTheBackground) {
    Socket listener = boundTo(Socket::TCP, "127.0.0.1");
    const int port = listener.getHostPort();
    Socket client(Socket::TCP);
    EXPECT_FALSE(client.connect("127.0.0.1", port));
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(client.getRemotePort(), 0);
    EXPECT_FALSE(isNonBlocking(client.fd()));

    ::listen(listener.fd(), 0);  // a backlog that is full leaves further attempts unanswered
    std::vector<Socket> fillers;
    for (int i = 0; i < 3; ++i) {
        fillers.emplace_back(Socket::TCP);
        EXPECT_TRUE(fillers.back().startConnect("127.0.0.1", port));
        EXPECT_EQ(fillers.back().getRemotePort(), port);
    }
    ASSERT_TRUE(awaitReadable(listener.fd()));
    EXPECT_FALSE(client.connect("127.0.0.1", port, 30));
    EXPECT_EQ(errno, ETIMEDOUT);
    listener.listen();
    EXPECT_TRUE(client.connect("127.0.0.1", port));
    ASSERT_TRUE(awaitReady(fillers[0].fd(), POLLOUT));
    EXPECT_EQ(fillers[0].send("x", 1), 1);
    char byte = 0;
    EXPECT_EQ(listener.accept().recv(&byte, 1, 10000), 1);
}

struct UnixSocketTest : ::testing::Test {
    TemporaryFolder folder;
    UnixSocket boundTo(UnixSocket::Type type, const std::string& addr) {
        UnixSocket socket(type);
        return socket.bind(addr) ? socket : UnixSocket();
    }
};

TEST_F(UnixSocketTest, CarriesOneDatagramARead) {
    UnixSocket server = boundTo(UnixSocket::DGRAM, folder / "server");
    UnixSocket client = boundTo(UnixSocket::DGRAM, folder / "client");
    ASSERT_TRUE(client.connect(folder / "server"));
    EXPECT_EQ(client.send("", 0), 0);
    EXPECT_EQ(client.send("three", 5), 5);
    EXPECT_EQ(UnixSocket(UnixSocket::DGRAM).sendTo("x", 1, folder / "server"), 1);
    char buffer[4] = {};
    std::string from = "unknown";
    EXPECT_EQ(server.recvFrom(buffer, 4, 10000, &from), 0);
    EXPECT_EQ(from, folder / "client");
    EXPECT_EQ(server.recv(buffer, 4), 4);  // and the rest of it is lost
    EXPECT_EQ(server.recvFrom(buffer, 4, 10000, &from), 1);
    EXPECT_EQ(from, "");
}

TEST_F(UnixSocketTest, KnowsBothAddressesAndWhoIsAtTheOtherEnd) {
    for (const std::string& name : {folder / "listener", "@vyn-test-" + folder.path()}) {
        UnixSocket listener = boundTo(UnixSocket::STREAM, name);
        ASSERT_TRUE(listener.listen());
        EXPECT_EQ(listener.getLocalAddr(), name);
        EXPECT_FALSE(boundTo(UnixSocket::STREAM, name).isValid());
        EXPECT_EQ(errno, EADDRINUSE);
        EXPECT_FALSE(listener.peerCredentials().has_value());
        UnixSocket client = boundTo(UnixSocket::STREAM, name + "-client");
        ASSERT_TRUE(client.connect(name));
        UnixSocket server = listener.accept();
        EXPECT_EQ(server.getRemoteAddr(), name + "-client");
        EXPECT_EQ(client.getRemoteAddr(), name);
        const auto peer = server.peerCredentials();
        ASSERT_TRUE(peer.has_value());
        EXPECT_EQ(peer->pid, getpid());
        EXPECT_EQ(peer->uid, geteuid());
        EXPECT_EQ(peer->gid, getegid());
    }
    UnixSocket alone(UnixSocket::STREAM);
    EXPECT_FALSE(alone.connect("@vyn-test-" + folder.path()));  // went with its socket
    EXPECT_FALSE(alone.peerCredentials().has_value());
    EXPECT_EQ(alone.getRemoteAddr() + alone.getLocalAddr(), "");
    EXPECT_EQ(folder.entries(), 2);
}

TEST_F(UnixSocketTest, RefusesWhatCannotBeAnAddressWithOneLine) {
    const size_t longest = sizeof sockaddr_un{}.sun_path - 1;
    const std::string fits = folder / std::string(longest - folder.path().size() - 1, 'x');
    UnixSocket socket(UnixSocket::STREAM);
    LogCapture capture;
    EXPECT_FALSE(socket.bind(fits + "x"));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(capture.texts(),
              Strings{"[36] File name too long. no address of a unix socket: " + fits + "x"});
    for (const std::string& text : {std::string(), std::string("@"), std::string("a\0b", 3)}) {
        capture.clear();
        EXPECT_FALSE(socket.bind(text));
        EXPECT_FALSE(socket.connect(text));
        EXPECT_EQ(socket.sendTo("x", 1, text), -1);
        EXPECT_EQ(capture.count("[22] Invalid argument. no address of a unix socket:"), 3);
    }
    EXPECT_TRUE(socket.bind(fits)) << socket.lastErrorMessage();
    EXPECT_EQ(socket.getLocalAddr(), fits);
    EXPECT_TRUE(boundTo(UnixSocket::STREAM, "@" + std::string(longest - 1, 'x')).isValid());
}

TEST_F(UnixSocketTest, ReplacesTheFileOfASocketThatIsGoneAndNothingElse) {
    for (const auto type : {UnixSocket::STREAM, UnixSocket::DGRAM, UnixSocket::STREAM}) {
        EXPECT_TRUE(boundTo(type, folder / "stale").isValid());
    }
    folder.write("file", "precious");
    ASSERT_EQ(symlink((folder / "stale").c_str(), (folder / "link").c_str()), 0);
    UnixSocket listener = boundTo(UnixSocket::STREAM, folder / "listening");
    ASSERT_TRUE(listener.listen());
    UnixSocket bound = boundTo(UnixSocket::STREAM, folder / "bound");
    UnixSocket datagrams = boundTo(UnixSocket::DGRAM, folder / "datagrams");
    for (const char* name : {"file", "link", "listening", "bound", "datagrams"}) {
        for (const auto type : {UnixSocket::STREAM, UnixSocket::DGRAM}) {
            EXPECT_FALSE(boundTo(type, folder / name).isValid());
            EXPECT_EQ(errno, EADDRINUSE) << name;
        }
    }
    EXPECT_EQ(folder.read("file"), "precious");
    EXPECT_EQ(folder.entries(), 6);
    EXPECT_FALSE(listener.accept().isValid());  // no rival's probe waits here
}

TEST_F(UnixSocketTest, WaitsForRoomInTheBacklogAtMostItsTimeout) {
    UnixSocket listener = boundTo(UnixSocket::STREAM, folder / "socket");
    ASSERT_EQ(::listen(listener.fd(), 0), 0);
    UnixSocket first(UnixSocket::STREAM);
    ASSERT_TRUE(first.connect(folder / "socket"));
    UnixSocket second(UnixSocket::STREAM);
    EXPECT_FALSE(second.connect(folder / "socket", 30));
    EXPECT_EQ(errno, EAGAIN);
    std::thread late([&] { EXPECT_TRUE(listener.accept().isValid()); });
    EXPECT_TRUE(second.connect(folder / "socket", 60000));
    late.join();
}

}  // namespace
}  // namespace vyn
