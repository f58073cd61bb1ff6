// What every stream socket does, whatever it runs over.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

#include "support/descriptors.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::awaitReadable;
using testing::Connection;
using testing::openDescriptors;

template <typename Transport>
class StreamSocket : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!Transport::isAvailable()) GTEST_SKIP() << "this host has no such address";
    }
};

bool isCloseOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }
bool isNonBlocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }

using Transports =
    ::testing::Types<testing::Tcp4Transport, testing::Tcp6Transport, testing::UnixTransport>;
TYPED_TEST_SUITE(StreamSocket, Transports, );

// Bytes that repeat with a period of 251, so that a lost or doubled block shows.
std::string pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
    return bytes;
}

template <typename SocketType>
std::string receiveAll(SocketType& socket) {
    std::string received;
    char buffer[4096];
    int count = 0;
    while ((count = socket.recv(buffer, sizeof buffer, 10000)) > 0) {
        received.append(buffer, static_cast<size_t>(count));
    }
    EXPECT_EQ(count, 0) << socket.lastErrorMessage();
    return received;
}

TYPED_TEST(StreamSocket, BlockingSendDeliversEveryByteInOrder) {
    Connection<TypeParam> connection;
    const std::string sent = pattern(3 << 20);
    std::string received;
    std::thread receiver([&] { received = receiveAll(connection.server); });
    EXPECT_EQ(connection.client.send(sent.data(), static_cast<int>(sent.size())),
              static_cast<int>(sent.size()));
    connection.client.reset();
    receiver.join();
    EXPECT_TRUE(received == sent) << received.size() << " of " << sent.size();
}

TYPED_TEST(StreamSocket, NonBlockingSendReturnsWhatWasTaken) {
    Connection<TypeParam> connection;
    ASSERT_TRUE(connection.client.setNonBlock(true));
    const std::string sent = pattern(16 << 20);
    const int taken = connection.client.send(sent.data(), static_cast<int>(sent.size()));
    ASSERT_GT(taken, 0);
    ASSERT_LT(taken, static_cast<int>(sent.size()));
    while (connection.client.send("", 1) == 1) {
    }
    EXPECT_EQ(errno, EAGAIN);

    connection.client.shutdownSend();
    const std::string received = receiveAll(connection.server);
    EXPECT_TRUE(
        received.compare(0, static_cast<size_t>(taken), sent, 0, static_cast<size_t>(taken)) == 0);
}

TYPED_TEST(StreamSocket, HalfClosedStreamStillReceives) {
    Connection<TypeParam> connection;
    ASSERT_TRUE(connection.client.shutdownSend());
    char byte = 0;
    EXPECT_EQ(connection.server.recv(&byte, 1, 10000), 0);
    EXPECT_EQ(connection.server.send("x", 1), 1);
    EXPECT_EQ(connection.client.recv(&byte, 1, 10000), 1);
    EXPECT_EQ(connection.client.send("x", 1), -1);
    EXPECT_EQ(errno, EPIPE);  // and no SIGPIPE, or this process would be gone
}

TYPED_TEST(StreamSocket, ReceivingWaitsAtMostItsTimeoutWhetherItBlocksOrNot) {
    Connection<TypeParam> connection;
    char byte = 0;
    for (const bool nonBlock : {false, true}) {
        connection.server.setNonBlock(nonBlock);
        errno = 0;
        EXPECT_EQ(connection.server.recv(&byte, 1, 20), -1);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(connection.server.recv(&byte, 1, 0), -1);
        std::thread late([&] { connection.client.send("x", 1); });
        EXPECT_EQ(connection.server.recv(&byte, 1, 10000), 1);
        late.join();
    }
    EXPECT_EQ(connection.server.recv(&byte, 1), -1);  // non-blocking: without waiting
    EXPECT_EQ(errno, EAGAIN);
}

TYPED_TEST(StreamSocket, SignalsDoNotEndAWait) {
    struct sigaction interrupt {};
    struct sigaction previous {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupt, &previous);
    Connection<TypeParam> connection;
    for (const int timeoutMs : {10000, -1}) {
        std::atomic<int> received{0};
        std::thread receiver([&] {
            char byte = 0;
            received = connection.server.recv(&byte, 1, timeoutMs);
        });
        for (int i = 0; i < 20; ++i) {
            pthread_kill(receiver.native_handle(), SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        connection.client.send("x", 1);
        receiver.join();
        EXPECT_EQ(received, 1);
    }
    sigaction(SIGUSR1, &previous, nullptr);
}

TYPED_TEST(StreamSocket, CopiesOwnADescriptorEach) {
    Connection<TypeParam> connection;
    const int before = openDescriptors();
    {
        typename TypeParam::SocketType copy(connection.client);
        typename TypeParam::SocketType assigned;
        assigned = copy;
        assigned = *&assigned;
        EXPECT_EQ(openDescriptors(), before + 2);
        connection.client.reset();
        copy.reset();
        EXPECT_EQ(assigned.send("x", 1), 1);  // the last one keeps the connection open
        char byte = 0;
        EXPECT_EQ(connection.server.recv(&byte, 1, 10000), 1);
        EXPECT_EQ(connection.server.recv(&byte, 1, 0), -1);
        EXPECT_TRUE(isCloseOnExec(assigned.fd()));
    }
    EXPECT_EQ(openDescriptors(), before - 1);
}

TYPED_TEST(StreamSocket, TakingOverEmptiesTheSource) {
    using SocketType = typename TypeParam::SocketType;
    Connection<TypeParam> connection;
    const int before = openDescriptors();
    const int fd = connection.client.fd();
    {
        const SocketType& source = connection.client;
        SocketType taken(&source);
        EXPECT_EQ(taken.fd(), fd);
        EXPECT_EQ(source.fd(), -1);
        SocketType moved(connection.server);
        moved.move(taken);
        EXPECT_EQ(moved.fd(), fd);
        EXPECT_FALSE(taken.isValid());
        moved.move(moved);
        EXPECT_EQ(moved.fd(), fd);
        SocketType last(std::move(moved));
        EXPECT_EQ(last.fd(), fd);
        EXPECT_EQ(openDescriptors(), before);
    }
    EXPECT_EQ(openDescriptors(), before - 1);
    const SocketType* none = nullptr;
    EXPECT_FALSE(SocketType(none).isValid());
}

TYPED_TEST(StreamSocket, AcceptingNeverBlocksAndGivesBlockingSockets) {
    TypeParam transport;
    auto listener = transport.listener();
    ASSERT_TRUE(listener.isValid());
    EXPECT_FALSE(listener.accept().isValid());
    EXPECT_EQ(errno, EAGAIN);
    auto client = transport.client(listener);
    ASSERT_TRUE(awaitReadable(listener.fd()));
    auto accepted = listener.accept();
    ASSERT_TRUE(accepted.isValid());
    EXPECT_FALSE(isNonBlocking(accepted.fd()));
    EXPECT_TRUE(isCloseOnExec(accepted.fd()));
    EXPECT_TRUE(isCloseOnExec(listener.fd()));
}

TYPED_TEST(StreamSocket, WithoutADescriptorEveryCallFails) {
    typename TypeParam::SocketType socket;
    char byte = 0;
    EXPECT_EQ(socket.send("x", 1), -1);
    EXPECT_EQ(socket.recv(&byte, 1, 1000), -1);
    EXPECT_EQ(socket.lastErrorMessage(), "[9] Bad file descriptor");
    EXPECT_FALSE(socket.listen());
    EXPECT_FALSE(socket.setNonBlock(true));
    EXPECT_FALSE(socket.accept().isValid());
    EXPECT_FALSE((typename TypeParam::SocketType(socket)).isValid());
}

TYPED_TEST(StreamSocket, NegativeSizesAreRefused) {
    Connection<TypeParam> connection;
    char byte = 0;
    EXPECT_EQ(connection.client.send("x", -1), -1);
    EXPECT_EQ(connection.client.recv(&byte, -1, 1000), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(connection.client.send("", 0), 0);
}

}  // namespace
}  // namespace vyn
