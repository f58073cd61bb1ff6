// SPDX-License-Identifier: Apache-2.0

// Devices and listeners over sockets, served by hand.

#include <linux/net_tstamp.h>
#include <sys/stat.h>

#include <ctime>

#include "support/support.h"
#include "support/transports.h"

namespace vyn {
namespace {

using namespace testing;

// The server's end of a connection and its listener are devices, each with a worker.
template <typename Transport>
struct StreamDevice : ::testing::Test {
    using DeviceType = typename Transport::DeviceType;

    Connection<Transport> connection;
    DeviceType device{&connection.server};
    ReceivedWorker worker{&device};
    Worker listening{connection.device.get(), nullptr};
    RecordingExecutor executor;
    FatalCapture fatal;
    LogCapture log;
    int disconnections = 0;
    char byte = 0;

    StreamDevice() {
        worker.attach(nullptr, &executor);
        listening.attach(nullptr, &executor);
        executor.disconnected = [this](Worker*) { ++disconnections; };
    }
    void serve() { connection.device->onDataArrival(connection.device->getFd()); }
    void serveOneMore() {
        connection.client = connection.transport.client(connection.listener);
        ASSERT_TRUE(awaitReadable(connection.listener.fd()));
        serve();
    }
};
using Transports = ::testing::Types<Tcp4Transport, UnixTransport>;
TYPED_TEST_SUITE(StreamDevice, Transports, );

TYPED_TEST(StreamDevice, ReadsAtMost2048BytesEachTimeItIsReadyOrWhatItIsToldTo) {
    const std::string sent = std::string(2048, 'a') + "bc";
    this->connection.client.send(sent.data(), 2050);
    while (this->worker.chunks.size() < 2 && awaitReadable(this->device.getFd())) {
        this->device.onDataArrival(this->device.getFd());
    }
    EXPECT_EQ(this->worker.chunks, (Strings{std::string(2048, 'a'), "bc"}));
    EXPECT_FALSE(this->device.setReadSize((1 << 20) + 1));
    EXPECT_TRUE(this->device.setReadSize(4000));
    this->connection.client.send(std::string(4000, 'd').data(), 4000);
    ASSERT_TRUE(awaitReadable(this->device.getFd()));
    this->device.onDataArrival(this->device.getFd());
    EXPECT_EQ(this->worker.chunks.back(), std::string(4000, 'd'));
}

TYPED_TEST(StreamDevice, EndsOnceAndClosesItsDescriptorOnlyWhenItDisconnects) {
    this->connection.client.reset();
    ASSERT_TRUE(awaitReadable(this->device.getFd()));
    this->device.onDataArrival(this->device.getFd());
    EXPECT_EQ(this->log.count("read. ret:0"), 1);
    EXPECT_EQ(this->disconnections, 1);
    EXPECT_GE(this->device.getFd(), 0);
    this->worker.enable();
    this->executor.disconnected = [&](Worker*) { EXPECT_EQ(this->device.getFd(), -1); };
    this->device.disconnect();
    EXPECT_FALSE(this->worker.isValid());
}

TYPED_TEST(StreamDevice, BecomesNonBlockingWithAsynchronousWritingUnlessItCarriesDatagrams) {
    using SocketType = typename TypeParam::SocketType;
    SocketType socket(static_cast<typename SocketType::Type>(1));
    typename TypeParam::DeviceType datagrams(&socket);
    for (const bool async : {false, true}) {
        config::setAsyncWritting(async);
        this->device.onReady();
        datagrams.onReady();
        config::setAsyncWritting(false);
        EXPECT_EQ((fcntl(this->device.getFd(), F_GETFL) & O_NONBLOCK) != 0, async);
    }
    EXPECT_EQ(fcntl(datagrams.getFd(), F_GETFL) & O_NONBLOCK, 0);
}

TYPED_TEST(StreamDevice, ListenersReportTheirDescriptorAndASocketToTakeAndMayBeDeletedMeanwhile) {
    using SocketType = typename TypeParam::SocketType;
    int expected = 0;
    std::unique_ptr<SocketType> taken;
    this->executor.newConnection = [&](Worker* reporting, int fd, void* data) {
        EXPECT_EQ(reporting, &this->listening);
        EXPECT_EQ(fd, this->connection.device->getFd());
        const auto* accepted = static_cast<SocketType*>(data);
        if (++expected < 3) taken = std::make_unique<SocketType>(accepted);
        if (expected == 4) this->connection.device.reset();
    };
    this->serveOneMore();
    EXPECT_EQ(taken->send("x", 1), 1);
    this->serve();
    EXPECT_FALSE(taken->isValid());  // nobody waited
    EXPECT_EQ(this->log.texts()[1].substr(0, 28), "\033[1;33;40mRun here! accepted");
    this->serveOneMore();  // what is not taken is closed
    EXPECT_EQ(this->connection.client.recv(&this->byte, 1, 10000), 0);
    this->serveOneMore();
    EXPECT_EQ(this->connection.device, nullptr);
}

// What is sent leaves a notice of when it was, which makes the socket ready.
TEST(NetDevice, NeitherWaitsNorEndsWhereOnlyANoticeIsToBeRead) {
    Connection<Tcp4Transport> connection;
    const int notices = SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
    if (setsockopt(connection.server.fd(), SOL_SOCKET, SO_TIMESTAMPING, &notices, sizeof notices) !=
        0) {
        GTEST_SKIP() << "no notices of sent bytes here";
    }
    EXPECT_EQ(connection.server.send("x", 1), 1);
    ASSERT_TRUE(awaitReady(connection.server.fd(), POLLERR));
    const std::clock_t began = std::clock();
    char byte = 0;
    EXPECT_EQ(connection.server.recv(&byte, 1, 200), -1);
    EXPECT_LT(std::clock() - began, CLOCKS_PER_SEC / 10);  // it did not spin
    NetDevice device(&connection.server);
    const std::string far = "127.0.0.1:" + std::to_string(connection.client.getHostPort());
    EXPECT_NE(printed<Device*>(&device).find(", [" + far + "=>127.0.0.1:"), std::string::npos);
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
    ReceivedWorker worker(&device);
    RecordingExecutor executor;
    worker.attach(nullptr, &executor);
    const auto serve = [&] {
        ASSERT_TRUE(awaitReadable(device.getFd()));
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

TEST(ListenerDevice, ListensAnewAndTellsOfSuccessAndFailure) {
    FatalCapture fatal;
    LogCapture log;
    ListenerDevice first(0, "127.0.0.1");
    const int port = first.socket().getHostPort();
    const std::string taken = "127.0.0.1:" + std::to_string(port);
    ListenerDevice second(port, "127.0.0.1");
    EXPECT_EQ(fatal.count("Check failed. (b == true) bind [" + taken + "] failed."), 1);
    EXPECT_FALSE(second.listen(port, "127.0.0.1"));
    EXPECT_EQ(second.getFd(), -1);  // or its loop would report that it hangs up
    EXPECT_EQ(log.count("bind [" + taken + "] failed."), 2);
    EXPECT_TRUE(second.listen(0, "127.0.0.1"));
    EXPECT_EQ(log.count("listen on 127.0.0.1:"), 2);
    EXPECT_EQ(ListenerDevice(-1, "127.0.0.1").getFd(), -1);
}

TEST(UnixListenerDevice, OpensItsFileToEveryoneAndFailingToIsFatal) {
    const TemporaryFolder folder;
    const std::string path = folder / "socket";
    FatalCapture fatal;
    const mode_t mask = umask(0077);
    UnixListenerDevice device(path);
    umask(mask);
    const UnixListenerDevice nameless("@vyn-test-device-" + folder.path());
    EXPECT_EQ(fatal.lines(), Strings{});
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::all);
    UnixSocket socket(UnixSocket::STREAM);
    ASSERT_TRUE(socket.connect(path));
    UnixDevice client(&socket);
    EXPECT_NE(printed<Device*>(&client).find(", addr=" + path + "}"), std::string::npos);
    const UnixListenerDevice homeless(path + "/none");
    EXPECT_EQ(fatal.count("Check failed. (b == true) bind addr " + path + "/none failed."), 1);
    EXPECT_EQ(fatal.count("Check failed. (ret == 0) chmod addr " + path + "/none to 0777"), 1);
}

}  // namespace
}  // namespace vyn
