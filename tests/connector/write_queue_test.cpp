#include <linux/tcp.h>

#include "device/drain_scope.h"
#include "support/support.h"
#include "support/transports.h"

// A worker's write queue over real sockets, and what it makes of devices that take a part.

namespace vyn {
namespace {

using testing::Connection;
using testing::FakeDevice;
using testing::LogCapture;
using testing::LoopThread;
using testing::RecordingExecutor;
using testing::TemporaryFolder;
using testing::waitUntil;

struct WriteQueueTest : ::testing::Test {
    LogCapture log;
    std::atomic<int> disconnections{0};
    RecordingExecutor executor;

    WriteQueueTest() {
        executor.disconnected = [this](Worker*) { ++disconnections; };
    }
    ~WriteQueueTest() override { config::setAsyncWritting(false); }

    static void queue(Worker& worker, const std::string& bytes) {
        worker.queueWritting(bytes.data(), static_cast<int>(bytes.size()));
    }
    static void write(Worker& worker, const std::string& bytes) {
        worker.writeRaw(bytes.data(), static_cast<int>(bytes.size()));
    }
};

// Has the loop write `writes` megabytes for a peer that reads once the loop has answered.
template <typename Device, typename Peer>
void expectLoopIsFree(Device& device, Connector::Executor& executor, int writes, int size,
                      Peer& peer) {
    Worker worker(&device, nullptr);
    LoopThread loop;
    loop.connector().addWorkerLocked(&worker, &executor);
    const std::string bytes(static_cast<size_t>(size), 'x');
    for (int i = 0; i < writes; ++i) worker.queueWritting(bytes.data(), size);
    for (int turn = 0; turn < 3; ++turn) loop.call([] {});
    EXPECT_TRUE(worker.hasWrittingData());
    std::string buffer(bytes.size(), 0);
    for (int left = writes * size; left > 0;) {
        const int count = peer.recv(buffer.data(), size, 60000);
        ASSERT_GT(count, 0);
        left -= count;
    }
    EXPECT_TRUE(waitUntil([&] { return !worker.hasWrittingData(); }));
    loop.connector().removeWorkerLocked(&worker);
    loop.call([] {});
}

TEST_F(WriteQueueTest, NeverWaitsForAPeerThatDoesNotReadWhateverTheDescriptorsMode) {
    Connection<testing::Tcp4Transport> tcp;
    NetDevice stream(&tcp.server);
    expectLoopIsFree(stream, executor, 32, 1 << 20, tcp.client);

    // One that was derived from ours, too, though its writes are its own.
    struct Derived : NetDevice {
        using NetDevice::NetDevice;
        int write(const void* data, int len) override { return NetDevice::write(data, len); }
    };
    Connection<testing::Tcp4Transport> other;
    Derived derived(&other.server);
    expectLoopIsFree(derived, executor, 32, 1 << 20, other.client);

    const TemporaryFolder folder;
    UnixSocket peer(UnixSocket::DGRAM);
    ASSERT_TRUE(peer.bind(folder / "peer"));
    UnixSocket socket(UnixSocket::DGRAM);
    ASSERT_TRUE(socket.connect(folder / "peer"));
    UnixDevice datagrams(&socket);
    expectLoopIsFree(datagrams, executor, 90, 1000, peer);
}

TEST_F(WriteQueueTest, DropsADatagramThatCanNeverBeSentAndGoesOn) {
    Socket peer(Socket::UDP);
    peer.setHostIP("127.0.0.1");
    ASSERT_TRUE(peer.bind(0));
    Socket socket(Socket::UDP);
    ASSERT_TRUE(socket.connect("127.0.0.1", peer.getHostPort()));
    NetDevice device(&socket);
    Worker worker(&device, nullptr);
    LoopThread loop;
    loop.connector().addWorkerLocked(&worker, &executor);
    queue(worker, std::string(70000, 'x'));
    queue(worker, "small");
    char buffer[16];
    EXPECT_EQ(peer.recv(buffer, sizeof buffer, 60000), 5);
    EXPECT_EQ(log.count("[90] Message too long. a datagram of 70000 bytes can not be sent"), 1);
    loop.connector().removeWorkerLocked(&worker);
    EXPECT_EQ(disconnections, 0);
}

TEST_F(WriteQueueTest, EndsAStreamOnceThatTakesNothingAnyMore) {
    Connection<testing::Tcp4Transport> tcp;
    NetDevice device(&tcp.server);
    auto* worker = new Worker(&device, nullptr);
    executor.disconnected = [&](Worker* gone) {
        gone->getConnector()->removeWorkerLocked(gone);
        delete gone;
        ++disconnections;
    };
    LoopThread loop;
    loop.connector().addWorkerLocked(worker, &executor);
    loop.call([&] {
        device.socket().shutdownSend();
        queue(*worker, "late");
        queue(*worker, "later");
    });
    EXPECT_TRUE(waitUntil([&] { return disconnections > 0; }));
    loop.call([] {});
    EXPECT_EQ(disconnections, 1);
    EXPECT_EQ(log.count("[32] Broken pipe. can not write, 2 queued writes are lost"), 1);
}

// Without memory in the kernel, which the socket says for a while.
TEST_F(WriteQueueTest, WaitsForMemoryWithoutSpinning) {
    struct Poor : FakeDevice {
        std::atomic<int> attempts{0};
        int write(const void* data, int len) override {
            if (++attempts > 3) return FakeDevice::write(data, len);
            DrainScope::of(this)->error = ENOBUFS;
            return -1;
        }
    } device;
    Worker worker(&device, nullptr);
    LoopThread loop;
    loop.connector().addWorkerLocked(&worker, &executor);
    const auto start = std::chrono::steady_clock::now();
    queue(worker, "at last");
    EXPECT_TRUE(waitUntil([&] { return !worker.hasWrittingData(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(25));
    loop.connector().removeWorkerLocked(&worker);
    loop.call([&] { EXPECT_EQ(device.written, "at last"); });
}

TEST_F(WriteQueueTest, SendsManyWritesToAStreamAtOnce) {
    Connection<testing::Tcp4Transport> tcp;
    tcp.server.setNoDelay(true);
    NetDevice device(&tcp.server);
    Worker worker(&device, nullptr);
    for (int i = 0; i < 60; ++i) queue(worker, "0123456789");
    EXPECT_TRUE(worker.performWrite());
    tcp_info info{};
    socklen_t length = sizeof info;
    getsockopt(device.getFd(), IPPROTO_TCP, TCP_INFO, &info, &length);
    EXPECT_EQ(info.tcpi_data_segs_out, 1u);
    char buffer[1000];
    EXPECT_EQ(tcp.client.recv(buffer, sizeof buffer, 60000), 600);
}

TEST_F(WriteQueueTest, GivesDerivedDevicesEachWriteByItself) {
    struct Counting : NetDevice {
        using NetDevice::NetDevice;
        std::string sizes;
        int write(const void* data, int len) override {
            sizes += std::to_string(len) + " ";
            return NetDevice::write(data, len);
        }
    };
    Connection<testing::Tcp4Transport> tcp;
    Counting device(&tcp.server);
    Worker worker(&device, nullptr);
    for (const char* text : {"a", "bb", "ccc"}) queue(worker, text);
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(device.sizes, "1 2 3 ");
}

TEST_F(WriteQueueTest, LetsADeviceAskAndQueueWhileItWrites) {
    struct Curious : FakeDevice {
        Worker* worker = nullptr;
        int write(const void* data, int len) override {
            if (worker->hasWrittingData() && writes == 0) worker->queueWritting("!", 1);
            return FakeDevice::write(data, len);
        }
    } device;
    Worker worker(&device, nullptr);
    device.worker = &worker;
    queue(worker, "?");
    EXPECT_FALSE(worker.performWrite());
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(device.written, "?!");
}

TEST_F(WriteQueueTest, CutsNoPacketForASelfCall) {
    FakeDevice device;
    Worker worker(&device, nullptr);
    queue(worker, "packet");
    queue(worker, "whole");
    worker.setSelfCallFlag(true);
    device.accepts = 2;
    EXPECT_FALSE(worker.performWrite());
    write(worker, "SELF");
    write(worker, "CALL");
    EXPECT_EQ(device.written, "packetSE");
    EXPECT_EQ(log.count("0 of 4 bytes written for self call, the rest is next in the queue."), 2);
    device.accepts = 100;
    write(worker, "now");
    EXPECT_EQ(device.written, "packetSELFCALLnow");
    device.accepts = 2;
    write(worker, "part");
    device.accepts = 100;
    write(worker, "|");
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(device.written, "packetSELFCALLnowpart|whole");
}

TEST_F(WriteQueueTest, KeepsTheOrderWhenAsynchronousWritingIsSwitchedOff) {
    FakeDevice device;
    Worker worker(&device, nullptr);
    queue(worker, "one ");
    write(worker, "two ");
    EXPECT_EQ(device.written, "one two ");
    queue(worker, "three ");
    device.accepts = 0;
    write(worker, "four");
    device.accepts = 100;
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(device.written, "one two three four");
}

TEST_F(WriteQueueTest, TellsWhatWasSentThoughThePeerEndsMidway) {
    Connection<testing::UnixTransport> stream;
    std::thread reader([peer = std::move(stream.client)]() mutable {
        char buffer[4096];
        peer.recv(buffer, sizeof buffer, 60000);
        peer.reset();
    });
    const std::string bytes(1 << 22, 'x');
    const int sent = stream.server.send(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, 1 << 22);
    reader.join();
}

}  // namespace
}  // namespace vyn
