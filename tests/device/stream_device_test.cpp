// What the devices of every stream socket do, whatever it runs over.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <vyn/config.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/fatal_capture.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/received_worker.h"
#include "support/recording_executor.h"
#include "support/transports.h"
#include "support/wait.h"

namespace vyn {
namespace {

using testing::awaitReadable;
using testing::Connection;
using testing::LogCapture;
using testing::LoopThread;
using testing::openDescriptors;
using testing::ReceivedWorker;
using testing::RecordingExecutor;

template <typename Transport>
class StreamDevice : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!Transport::isAvailable()) GTEST_SKIP() << "this host has no such address";
    }
};

using Transports =
    ::testing::Types<testing::Tcp4Transport, testing::Tcp6Transport, testing::UnixTransport>;
TYPED_TEST_SUITE(StreamDevice, Transports, );

// One device, its worker and an executor that counts disconnections.
template <typename DeviceType>
struct Attached {
    template <typename Source>
    explicit Attached(const Source* socket) : device(socket), worker(&device) {
        worker.attach(nullptr, &executor);
        executor.disconnected = [this](Worker*) { ++disconnections; };
    }
    DeviceType device;
    ReceivedWorker worker;
    RecordingExecutor executor;
    int disconnections = 0;
};

bool isNonBlocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }

TYPED_TEST(StreamDevice, ReadsAtMost2048BytesEachTimeItIsReady) {
    Connection<TypeParam> connection;
    Attached<typename TypeParam::DeviceType> end(&connection.server);
    EXPECT_FALSE(connection.server.isValid());
    const std::string sent = std::string(2048, 'a') + "bc";
    connection.client.send(sent.data(), static_cast<int>(sent.size()));
    while (end.worker.chunks.size() < 2 && awaitReadable(end.device.getFd())) {
        end.device.onDataArrival(end.device.getFd());
    }
    EXPECT_EQ(end.worker.chunks, (std::vector<std::string>{std::string(2048, 'a'), "bc"}));
    EXPECT_EQ(end.disconnections, 0);
}

TYPED_TEST(StreamDevice, EndOfStreamIsOneLineAndOneDisconnection) {
    Connection<TypeParam> connection;
    Attached<typename TypeParam::DeviceType> end(&connection.server);
    connection.client.reset();
    ASSERT_TRUE(awaitReadable(end.device.getFd()));
    LogCapture capture;
    errno = ECONNRESET;
    end.device.onDataArrival(end.device.getFd());
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"[0] Success. read. ret:0"});
    EXPECT_EQ(end.disconnections, 1);
    EXPECT_GE(end.device.getFd(), 0);  // closing is the owner's business
}

TYPED_TEST(StreamDevice, DisconnectingClosesAndThenReports) {
    Connection<TypeParam> connection;
    Attached<typename TypeParam::DeviceType> end(&connection.server);
    end.executor.disconnected = [&](Worker*) {
        EXPECT_EQ(end.device.getFd(), -1);
        ++end.disconnections;
    };
    end.device.disconnect();
    EXPECT_EQ(end.disconnections, 1);
    char byte = 0;
    EXPECT_EQ(connection.client.recv(&byte, 1, 10000), 0);
    EXPECT_EQ(end.device.write("x", 1), -1);
}

TYPED_TEST(StreamDevice, ClosesItsSocketWhenItGoes) {
    Connection<TypeParam> connection;
    const int before = openDescriptors();
    {
        typename TypeParam::DeviceType copy(connection.server);
        EXPECT_EQ(openDescriptors(), before + 1);
        typename TypeParam::DeviceType taker(&connection.server);
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before - 1);
}

TYPED_TEST(StreamDevice, BecomesNonBlockingWithAsynchronousWriting) {
    Connection<TypeParam> connection;
    typename TypeParam::DeviceType device(&connection.server);
    device.onReady();
    EXPECT_FALSE(isNonBlocking(device.getFd()));
    config::setAsyncWritting(true);
    device.onReady();
    config::setAsyncWritting(false);
    EXPECT_TRUE(isNonBlocking(device.getFd()));
}

TYPED_TEST(StreamDevice, HasNoHeartbeatOfItsOwn) {
    typename TypeParam::DeviceType device;
    EXPECT_EQ(device.heartbitInterval(), 0);
    EXPECT_EQ(device.heartbitTimeout(), 0);
    EXPECT_EQ(device.create(), -1);
    EXPECT_TRUE(device.getFds().empty());
    EXPECT_EQ(device.getFd(), -1);
}

// A listener that is served by hand.
template <typename Transport>
struct Listening {
    Listening() : device(transport.listenerDevice()), worker(device.get(), nullptr) {
        worker.attach(nullptr, &executor);
    }
    void serve() { device->onDataArrival(device->getFd()); }

    Transport transport;
    std::unique_ptr<typename Transport::ListenerType> device;
    Worker worker;
    RecordingExecutor executor;
};

TYPED_TEST(StreamDevice, ListenerReportsItsOwnDescriptorAndTheAcceptedSocket) {
    Listening<TypeParam> listening;
    std::unique_ptr<typename TypeParam::DeviceType> taken;
    listening.executor.newConnection = [&](Worker* worker, int fd, void* data) {
        EXPECT_EQ(worker, &listening.worker);
        EXPECT_EQ(fd, listening.device->getFd());
        const auto* accepted = static_cast<const typename TypeParam::SocketType*>(data);
        taken = std::make_unique<typename TypeParam::DeviceType>(accepted);
        EXPECT_FALSE(accepted->isValid());
    };
    auto client = listening.transport.client(listening.device->socket());
    ASSERT_TRUE(awaitReadable(listening.device->getFd()));
    listening.serve();
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(taken->write("x", 1), 1);
    char byte = 0;
    EXPECT_EQ(client.recv(&byte, 1, 10000), 1);
}

TYPED_TEST(StreamDevice, ListenerClosesASocketThatIsNotTaken) {
    Listening<TypeParam> listening;
    auto client = listening.transport.client(listening.device->socket());
    ASSERT_TRUE(awaitReadable(listening.device->getFd()));
    listening.serve();
    char byte = 0;
    EXPECT_EQ(client.recv(&byte, 1, 10000), 0);
}

TYPED_TEST(StreamDevice, ListenerReportsAFailedAcceptAsAnInvalidSocket) {
    Listening<TypeParam> listening;
    int invalid = 0;
    listening.executor.newConnection = [&](Worker*, int, void* data) {
        invalid += !static_cast<typename TypeParam::SocketType*>(data)->isValid();
    };
    listening.serve();
    EXPECT_EQ(invalid, 1);
}

TYPED_TEST(StreamDevice, ListenerMayBeDeletedWhileItReports) {
    Listening<TypeParam> listening;
    listening.executor.newConnection = [&](Worker*, int, void*) { listening.device.reset(); };
    auto client = listening.transport.client(listening.device->socket());
    ASSERT_TRUE(awaitReadable(listening.device->getFd()));
    listening.serve();
    EXPECT_EQ(listening.device, nullptr);
}

TYPED_TEST(StreamDevice, ListenerServesOnlyItsOwnDescriptor) {
    Listening<TypeParam> listening;
    testing::FatalCapture fatal;
    listening.device->onDataArrival(listening.device->getFd() + 1);
    EXPECT_EQ(fatal.count("Check failed. (fd == mSocket.fd())"), 1);
}

// Echoes, on a loop, what each of its connections sends.
template <typename Transport>
struct EchoServer {
    struct Peer : Worker {
        explicit Peer(Device* ownedDevice) : Worker(ownedDevice, nullptr), device(ownedDevice) {}
        bool handledBeforeParser(const void* data, int len) override {
            writeRaw(data, len);
            return true;
        }
        std::unique_ptr<Device> device;
    };

    EchoServer() : device(transport.listenerDevice()), worker(device.get(), nullptr) {
        executor.newConnection = [this](Worker*, int, void* data) {
            const auto* accepted = static_cast<const typename Transport::SocketType*>(data);
            if (!accepted->isValid()) return;
            auto* peer = new Peer(new typename Transport::DeviceType(accepted));
            peers.emplace(peer, peer);
            loop.connector().addWorkerLocked(peer, &executor);
        };
        executor.disconnected = [this](Worker* peer) {
            loop.connector().removeWorkerLocked(peer);
            peers.erase(peer);
            ++disconnections;
        };
        loop.connector().addWorkerLocked(&worker, &executor);
    }

    Transport transport;
    std::unique_ptr<typename Transport::ListenerType> device;
    Worker worker;
    RecordingExecutor executor;
    std::map<Worker*, std::unique_ptr<Peer>> peers;
    std::atomic<int> disconnections{0};
    LoopThread loop;
};

TYPED_TEST(StreamDevice, EchoesToManyClientsAtOnce) {
    constexpr size_t kClients = 500;
    testing::allowDescriptors(4 * kClients);
    EchoServer<TypeParam> server;
    std::vector<typename TypeParam::SocketType> clients;
    for (size_t i = 0; i < kClients; ++i) {
        clients.push_back(server.transport.client(server.device->socket()));
        ASSERT_TRUE(clients.back().isValid()) << i << ": " << clients.back().lastErrorMessage();
    }
    for (size_t i = 0; i < kClients; ++i) ASSERT_EQ(clients[i].send(&i, sizeof i), int{sizeof i});
    for (size_t i = 0; i < kClients; ++i) {
        size_t echoed = kClients;
        ASSERT_EQ(clients[i].recv(&echoed, sizeof echoed, 60000), int{sizeof echoed});
        EXPECT_EQ(echoed, i);
    }
    clients.clear();
    EXPECT_TRUE(testing::waitUntil([&] { return server.disconnections == int{kClients}; }));
}

}  // namespace
}  // namespace vyn
