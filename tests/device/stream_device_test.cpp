// SPDX-License-Identifier: Apache-2.0

// Devices and listeners over sockets, served by hand.

#include <sys/stat.h>

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

TYPED_TEST(StreamDevice, ReadsAtMost2048BytesEachTimeItIsReady) {
    const std::string sent = std::string(2048, 'a') + "bc";
    this->connection.client.send(sent.data(), 2050);
    while (this->worker.chunks.size() < 2 && awaitReadable(this->device.getFd())) {
        this->device.onDataArrival(this->device.getFd());
    }
    EXPECT_EQ(this->worker.chunks, (Strings{std::string(2048, 'a'), "bc"}));
    EXPECT_EQ(this->disconnections, 0);
}

TYPED_TEST(StreamDevice, TheEndOfTheStreamIsOneLineAndOneDisconnectionAndClosesNothing) {
    this->connection.client.reset();
    ASSERT_TRUE(awaitReadable(this->device.getFd()));
    this->device.onDataArrival(this->device.getFd());
    EXPECT_EQ(this->log.count("read. ret:0"), 1);
    EXPECT_EQ(this->disconnections, 1);
    EXPECT_GE(this->device.getFd(), 0);
}

TYPED_TEST(StreamDevice, DisconnectingClosesAndThenReports) {
    this->executor.disconnected = [&](Worker*) { EXPECT_EQ(this->device.getFd(), -1); };
    typename TypeParam::DeviceType copy(this->device.socket());
    this->device.disconnect();
    EXPECT_FALSE(this->worker.isValid());
    EXPECT_EQ(copy.write("x", 1), 1);
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

TYPED_TEST(StreamDevice, ListenersReportTheirOwnDescriptorAndASocketToTake) {
    std::unique_ptr<typename TypeParam::DeviceType> taken;
    bool take = true;
    this->executor.newConnection = [&](Worker* reporting, int fd, void* data) {
        EXPECT_EQ(reporting, &this->listening);
        EXPECT_EQ(fd, this->connection.device->getFd());
        const auto* accepted = static_cast<typename TypeParam::SocketType*>(data);
        if (!take) return;
        taken = std::make_unique<typename TypeParam::DeviceType>(accepted);
        EXPECT_FALSE(accepted->isValid());
    };
    this->serveOneMore();
    EXPECT_EQ(taken->write("x", 1), 1);
    this->serve();
    EXPECT_EQ(taken->getFd(), -1);  // nobody waited
    EXPECT_EQ(this->log.texts()[1].substr(0, 28), "\033[1;33;40mRun here! accepted");
    take = false;
    this->serveOneMore();
    EXPECT_EQ(this->connection.client.recv(&this->byte, 1, 10000), 0);
    this->connection.device->onDataArrival(this->connection.device->getFd() + 1);
    EXPECT_EQ(this->fatal.count("Check failed. (fd == mSocket.fd())"), 1);
}

TYPED_TEST(StreamDevice, ListenersMayBeDeletedWhileTheyReport) {
    this->executor.newConnection = [&](Worker*, int, void*) { this->connection.device.reset(); };
    this->serveOneMore();
    EXPECT_EQ(this->connection.device, nullptr);
}

TEST(NetDevice, PrintsBothAddressesAlsoWhenThePeerIsGone) {
    Connection<Tcp4Transport> connection;
    const std::string near = "127.0.0.1:" + std::to_string(connection.listener.getHostPort());
    const std::string far = "127.0.0.1:" + std::to_string(connection.client.getHostPort());
    Device* const device = new NetDevice(&connection.server);
    connection.client.reset();
    EXPECT_EQ(printed(device).find("NetDevice(0x"), 0u);
    EXPECT_NE(printed(device).find(", [" + far + "=>" + near + "]}"), std::string::npos);
    device->disconnect();
    EXPECT_NE(printed(device).find("): {fd=-1, [" + far + "=>"), std::string::npos);
    delete device;
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
    EXPECT_EQ(log.count("bind [" + taken + "] failed."), 2);
    EXPECT_TRUE(second.listen(0, "127.0.0.1"));
    EXPECT_EQ(log.count("listen on 127.0.0.1:"), 2);
    EXPECT_EQ(ListenerDevice(-1, "127.0.0.1").getFd(), -1);
}

TEST(UnixListenerDevice, OpensItsFileToEveryoneAndFailingToIsFatal) {
    const TemporaryFolder folder;
    const std::string path = folder / "socket";
    FatalCapture fatal;
    LogCapture log;
    const mode_t mask = umask(0077);
    UnixListenerDevice device(path);
    umask(mask);
    const UnixListenerDevice nameless("@vyn-test-device-" + folder.path());
    EXPECT_EQ(fatal.lines(), Strings{});
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::all);
    EXPECT_EQ(log.count("bind on " + path) + log.count("listen on " + path), 2);
    UnixSocket socket(UnixSocket::STREAM);
    ASSERT_TRUE(socket.connect(path));
    UnixDevice client(&socket);
    for (Device* each : {static_cast<Device*>(&device), static_cast<Device*>(&client)}) {
        EXPECT_NE(printed(each).find(", addr=" + path + "}"), std::string::npos);
    }
    const UnixListenerDevice homeless(path + "/none");
    EXPECT_EQ(fatal.count("Check failed. (b == true) bind addr " + path + "/none failed."), 1);
    EXPECT_EQ(fatal.count("Check failed. (ret == 0) chmod addr " + path + "/none to 0777"), 1);
}

}  // namespace
}  // namespace vyn
