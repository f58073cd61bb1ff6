// SPDX-License-Identifier: Apache-2.0

#include <linux/tcp.h>

#include <atomic>
#include <cstddef>
#include <thread>

#include "device/drain_scope.h"
#include "support/support.h"
#include "support/transports.h"

// How a write queue leaves, and what a worker offers for slow peers and for an orderly end.

namespace vyn {
namespace {

using namespace testing;

bool write(Worker& worker, const std::string& bytes) {
    return worker.writeRaw(bytes.data(), static_cast<int>(bytes.size()));
}
bool queue(Worker& worker, const std::string& bytes) {
    return worker.queueWritting(bytes.data(), static_cast<int>(bytes.size()));
}

// A worker without a loop.
struct FlowTest : ::testing::Test {
    LogCapture log;
    FakeDevice device;
    LineParser parser;
    RecordingExecutor executor;
    Worker worker{&device, &parser};

    FlowTest() { worker.attach(nullptr, &executor); }
};

TEST_F(FlowTest, WritesEagerlyAndGathersTheAnswersToOneRead) {
    worker.setEagerWriting(true);
    EXPECT_TRUE(write(worker, "at once "));
    device.accepts = 2;
    EXPECT_TRUE(write(worker, "partly "));
    device.accepts = 100;
    EXPECT_TRUE(write(worker, "behind "));
    EXPECT_TRUE(worker.performWrite());
    executor.command = [](Worker* asked, Command* command) {
        asked->setSelfCallFlag(static_cast<Line*>(command)->text == "SELF");
        asked->write(command);
    };
    device.writes = 0;
    worker.onData("a\nb\nc\n", 6);
    EXPECT_EQ(device.writes, 1);
    worker.onData("d\nSELF\ne\n", 9);
    EXPECT_EQ(device.written, "at once partly behind a\nb\nc\nd\nSELF\ne\n");
}

TEST_F(FlowTest, CountsWhatOneReadIsAnsweredWithAsOneWriteHoweverLarge) {
    worker.setEagerWriting(true);
    executor.command = [](Worker* asked, Command*) { write(*asked, std::string(30000, 'x')); };
    device.accepts = 10000;
    worker.onData(std::string(500, '\n').data(), 500);
    EXPECT_LE(worker.pendingWrites(), 2);
    device.accepts = -1;
    while (worker.pendingWrites() < 100) worker.onData("\n\n", 2);
    EXPECT_TRUE(worker.isValid());
    worker.onData("\n", 1);
    EXPECT_EQ(worker.disconnectReason(), DisconnectReason::kOverflow);
}

TEST_F(FlowTest, CutsNoPacketForASelfCallAndKeepsTheOrder) {
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
    worker.setSelfCallFlag(false);
    write(worker, "directly");
    EXPECT_EQ(device.written, "packetSELFCALLnowwholedirectly");
}

// Without memory in the kernel, which the socket says for a while. A device may ask what is queued.
TEST(WriteQueue, WaitsForMemoryWithoutSpinning) {
    struct Poor : FakeDevice {
        int write(const void* data, int len) override {
            if (writes == 3 || !mWorker->hasWrittingData()) return FakeDevice::write(data, len);
            ++writes;
            DrainScope::of(this)->error = ENOBUFS;
            return -1;
        }
    } device;
    RecordingExecutor executor;
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

TEST(WriteQueue, SendsManyWritesToAStreamAtOnceButEachByItselfToADerivedDevice) {
    struct Derived : NetDevice {
        using NetDevice::NetDevice;
        int write(const void* data, int len) override { return NetDevice::write(data, len); }
    };
    Connection<Tcp4Transport> tcp;
    NetDevice plain(tcp.server);
    Derived derived(tcp.server);
    const auto segmentsSent = [&] {
        tcp_info known{};
        socklen_t size = sizeof known;
        const int status = getsockopt(plain.getFd(), IPPROTO_TCP, TCP_INFO, &known, &size);
        const bool isTold =
            status == 0 && static_cast<size_t>(size) > offsetof(tcp_info, tcpi_data_segs_out);
        return isTold ? static_cast<int>(known.tcpi_data_segs_out) : -1;
    };
    if (segmentsSent() < 0) GTEST_SKIP() << "nothing counts segments here";
    const auto segmentsFor = [&](NetDevice& device) {
        Worker worker(&device, nullptr);
        for (int i = 0; i < 60; ++i) queue(worker, "0123456789");
        const int before = segmentsSent();
        EXPECT_TRUE(worker.performWrite());
        return segmentsSent() - before;
    };
    EXPECT_EQ(segmentsFor(plain), 1);
    EXPECT_GT(segmentsFor(derived), 2);  // the system, too, may join some
    Worker worker(&derived, nullptr);
    queue(worker, std::string(32 << 20, 'x'));
    EXPECT_FALSE(worker.performWrite());  // which a descriptor that blocks would never return from
}

TEST(WriteQueue, WaitsForNoReaderOfDatagramsAndDropsWhatCanNeverBeSent) {
    LogCapture log;
    const TemporaryFolder folder;
    UnixSocket peer(UnixSocket::DGRAM);
    UnixSocket socket(UnixSocket::DGRAM);
    ASSERT_TRUE(peer.bind(folder / "peer") && socket.connect(folder / "peer"));
    UnixDevice device(&socket);
    Worker worker(&device, nullptr);
    queue(worker, std::string(1 << 20, 'x'));
    for (int i = 0; i < 90; ++i) queue(worker, "x");
    EXPECT_FALSE(worker.performWrite());
    EXPECT_EQ(log.count("Message too long. a datagram of 1048576 bytes can not be sent"), 1);
    for (char byte; worker.hasWrittingData() && peer.recv(&byte, 1, 60000) == 1;) {
        worker.performWrite();
    }
    EXPECT_FALSE(worker.hasWrittingData());
}

std::string numbered(size_t size) {
    std::string bytes(size, 0);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

// Less when the stream ends before.
template <typename SocketType>
std::string readExactly(SocketType& socket, size_t size) {
    std::string bytes(size, 0);
    size_t read = 0;
    for (int count = 1; read < size && count > 0; read += static_cast<size_t>(count)) {
        count = std::max(socket.recv(&bytes[read], static_cast<int>(size - read), 60000), 0);
    }
    return bytes.substr(0, read);
}

TEST(UsualReads, LeaveZerosBehindWhatTheyRead) {
    struct Nosy : Worker {
        using Worker::Worker;
        std::string seen;
        bool handledBeforeParser(const void* data, int) override {
            seen.assign(static_cast<const char*>(data), 2048);
            return true;
        }
    };
    Connection<UnixTransport> connection;
    UnixDevice device(&connection.server);
    Nosy worker(&device, nullptr);
    for (const size_t size : {2048u, 7u, 3u}) {
        connection.client.send(numbered(size).data(), static_cast<int>(size));
        worker.onDataArrival(device.getFd());
        EXPECT_EQ(worker.seen, numbered(size) + std::string(2048 - size, 0));
    }
}

// With a loop and a peer.
template <typename Transport>
struct FlowOver : ::testing::Test {
    LogCapture log;
    Connection<Transport> connection;
    typename Transport::SocketType& client = connection.client;
    typename Transport::DeviceType device{&connection.server};
    LineParser parser;
    RecordingExecutor executor;
    Worker worker{&device, &parser};
    std::atomic<int> disconnections{0};
    LoopThread loop;

    FlowOver() {
        executor.disconnected = [this](Worker*) { ++disconnections; };
        loop.connector().addWorkerLocked(&worker, &executor);
    }
    ~FlowOver() override {
        loop.connector().removeWorkerLocked(&worker);
        loop.call([] {});
    }
    void turn(int times) {
        for (int i = 0; i < times; ++i) loop.call([] {});
    }
    DisconnectReason awaitEnd() {
        EXPECT_TRUE(waitUntil([this] { return disconnections > 0; }));
        turn(2);
        EXPECT_EQ(disconnections, 1);
        return worker.disconnectReason();
    }
};
using Streams = ::testing::Types<Tcp4Transport, UnixTransport>;
TYPED_TEST_SUITE(FlowOver, Streams, );

TYPED_TEST(FlowOver, AProducerWaitsForASlowReaderAndLosesNothing) {
    const std::string all = numbered(64 << 20);
    size_t produced = 0;
    size_t most = 0;
    struct Producer : WriteListener {
        std::function<void()> produce;
        void onWritten(Worker*) override { produce(); }
    } producer;
    producer.produce = [&, this] {
        const size_t before = produced;
        for (; produced < all.size() && this->worker.pendingBytes() < 1 << 20; produced += 65536) {
            this->worker.writeRaw(all.data() + produced, 65536);
            most = std::max(most, this->worker.pendingBytes());
        }
        EXPECT_LE(produced - before, size_t{6} << 20) << "the loop is kept";
        if (produced == all.size()) this->worker.disconnectWhenWritten(60000);
    };
    this->loop.call([&] {
        this->worker.setEagerWriting(true);
        this->worker.setWriteListener(&producer, 1 << 18);
        producer.produce();
    });
    EXPECT_EQ(readExactly(this->client, all.size() + 1), all);
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kOwnWish);
    EXPECT_LT(most, size_t{2} << 20);
}

TYPED_TEST(FlowOver, LastWordsReachASlowReaderWhateverItSendsMeanwhile) {
    this->executor.command = [](Worker*, Command*) { ADD_FAILURE() << "a command"; };
    std::thread([this] {
        queue(this->worker, numbered(3 << 20));
        this->worker.disconnectWhenWritten(60000);
    }).join();
    EXPECT_EQ(this->client.send("more\nand more\n", 14), 14);
    EXPECT_EQ(readExactly(this->client, (3 << 20) + 1), numbered(3 << 20));
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kOwnWish);
}

TYPED_TEST(FlowOver, LastWordsReachAPeerThatHasEndedItsOwnHalf) {
    this->client.setReceiveBufferSize(8192);  // so that some are on their way for a while
    this->loop.call([this] {
        this->executor.command = [](Worker* asked, Command*) {
            queue(*asked, numbered(100000));
            asked->disconnectWhenWritten(60000);
        };
    });
    EXPECT_EQ(this->client.send("question\n", 9), 9);
    this->client.shutdownSend();
    this->turn(20);
    EXPECT_EQ(readExactly(this->client, 100001), numbered(100000));
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kOwnWish);
}

TYPED_TEST(FlowOver, LastWordsEndInTimeWhenThePeerDoesNotRead) {
    queue(this->worker, numbered(16 << 20));
    this->loop.call([this] {
        this->worker.disconnectWhenWritten(50);
        this->loop.connector().removeWorkerLocked(&this->worker);
        this->loop.connector().addWorkerLocked(&this->worker, &this->executor);
    });
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kTimeout) << "also of a worker added again";
}

TYPED_TEST(FlowOver, APeerThatEndsItsHalfGetsItsAnswersIfThatIsWanted) {
    this->executor.command = [](Worker* asked, Command*) { queue(*asked, numbered(3 << 20)); };
    this->worker.setAllowHalfOpen(true);
    this->client.send("question\n", 9);
    this->client.shutdownSend();
    EXPECT_EQ(readExactly(this->client, 3 << 20), numbered(3 << 20));
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kEndOfStream);
}

TYPED_TEST(FlowOver, APausedPeerThatHangsUpLeavesItsBytes) {
    std::string heard;
    this->executor.command = [&](Worker*, Command* command) {
        heard += static_cast<Line*>(command)->text + " ";
    };
    this->loop.call([this] { this->worker.pauseReading(); });
    EXPECT_EQ(this->client.send("last\nwords\n", 11), 11);
    this->client.reset();
    this->turn(20);
    queue(this->worker, "in vain");
    this->turn(20);
    EXPECT_EQ(heard, "");
    EXPECT_EQ(this->disconnections, 0);
    this->worker.resumeReading();
    this->awaitEnd();
    EXPECT_EQ(heard, "last words ");
}

TYPED_TEST(FlowOver, AStreamThatTakesNothingAnyMoreEndsOnce) {
    this->loop.call([this] {
        this->device.socket().shutdownSend();
        queue(this->worker, "late");
        queue(this->worker, "later");
    });
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kError);
    EXPECT_EQ(this->log.count("[32] Broken pipe. can not write, 2 queued writes are lost"), 1);
}

TYPED_TEST(FlowOver, AWorkerThatIsRemovedBehindItsAnswerIsNotReportedWhenThatCannotBeSent) {
    this->loop.call([&] {
        this->executor.command = [this](Worker* asked, Command* command) {
            asked->setEagerWriting(true);
            asked->write(command);
            this->loop.connector().removeWorkerLocked(asked);
            this->device.socket().shutdownSend();
        };
    });
    this->client.send("question\n", 9);
    EXPECT_TRUE(waitUntil([this] { return this->log.count("can not write") == 1; }));
    this->turn(2);
    EXPECT_EQ(this->disconnections, 0);
}

// Also when it is told before it runs.
TEST(FlushingStop, WaitsForASlowReaderButNotForEverNorForOneThatIsGone) {
    for (const std::string peer : {"reads", "does not", "is gone"}) {
        const bool reads = peer == "reads";
        Connection<UnixTransport> connection;
        UnixDevice device(&connection.server);
        RecordingExecutor executor;
        Worker worker(&device, nullptr);
        std::string got;
        std::thread reader([&] {
            if (reads) got = readExactly(connection.client, 3 << 20);
        });
        std::thread([&] {
            Connector loop;
            loop.addWorkerLocked(&worker, &executor);
            queue(worker, numbered(3 << 20));
            if (peer == "is gone") worker.pauseReading(), connection.client.reset();
            loop.requestStop(peer == "does not" ? 50 : 60000);
            loop.run();
            EXPECT_NE(worker.hasWrittingData(), reads);
        }).join();
        reader.join();
        EXPECT_EQ(got, reads ? numbered(3 << 20) : "");
    }
}

}  // namespace
}  // namespace vyn
