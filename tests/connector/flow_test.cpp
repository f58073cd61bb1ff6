#include <gtest/gtest.h>
#include <vyn/config.h>
#include <vyn/worker.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/support.h"
#include "support/transports.h"

// What a worker offers for slow peers and for an orderly end.

namespace vyn {
namespace {

using testing::Connection;
using testing::FakeDevice;
using testing::Line;
using testing::LineParser;
using testing::LogCapture;
using testing::LoopThread;
using testing::RecordingExecutor;
using testing::Tcp4Transport;
using testing::UnixTransport;
using testing::waitUntil;

struct Told : WriteListener {
    std::vector<size_t> left;
    std::function<void(Worker*)> then;
    void onWritten(Worker* worker) override {
        left.push_back(worker->pendingBytes());
        if (then) then(worker);
    }
};

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
    DisconnectReason reason = DisconnectReason::kNone;

    FlowTest() {
        worker.attach(nullptr, &executor);
        executor.disconnected = [this](Worker* gone) { reason = gone->disconnectReason(); };
    }
};

TEST_F(FlowTest, TellsWhatBecameOfAWriteAndWhatWaits) {
    Line line("command");
    EXPECT_TRUE(worker.write(&line));
    device.accepts = 3;
    EXPECT_FALSE(worker.write(&line));  // directly, and the rest is lost
    EXPECT_TRUE(queue(worker, "12345"));
    EXPECT_TRUE(queue(worker, "678"));
    EXPECT_EQ(worker.pendingWrites(), 2);
    EXPECT_EQ(worker.pendingBytes(), 8u);
    EXPECT_FALSE(worker.performWrite());
    EXPECT_EQ(worker.pendingBytes(), 5u);

    worker.setMaxPendingBytes(9);
    EXPECT_TRUE(queue(worker, "9012"));
    EXPECT_EQ(reason, DisconnectReason::kNone);
    EXPECT_FALSE(queue(worker, "3"));
    EXPECT_EQ(reason, DisconnectReason::kOverflow);
    EXPECT_EQ(log.count("client blocks 4 writting requests, disconnect it."), 1);
    EXPECT_FALSE(write(worker, "too late"));
}

TEST_F(FlowTest, TellsAListenerWhenLessThanTheMarkAndWhenNothingIsLeft) {
    Told told;
    worker.setWriteListener(&told, 6);
    queue(worker, "1234");
    EXPECT_TRUE(worker.performWrite());
    queue(worker, "12345678");
    device.accepts = 2;
    EXPECT_FALSE(worker.performWrite());
    EXPECT_FALSE(worker.performWrite());
    EXPECT_FALSE(worker.performWrite());
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(told.left, (std::vector<size_t>{0, 4, 0}));
}

TEST_F(FlowTest, WritesEagerlyAndQueuesWhatIsNotTaken) {
    worker.setEagerWriting(true);
    EXPECT_TRUE(write(worker, "at once "));
    EXPECT_EQ(device.written, "at once ");
    device.accepts = 2;
    EXPECT_TRUE(write(worker, "partly "));
    device.accepts = 100;
    EXPECT_TRUE(write(worker, "behind it"));
    EXPECT_EQ(device.written, "at once pa");
    EXPECT_TRUE(worker.performWrite());
    EXPECT_EQ(device.written, "at once partly behind it");
}

TEST_F(FlowTest, GathersWhatIsWrittenWhileAReadIsHandled) {
    worker.setEagerWriting(true);
    executor.command = [this](Worker* asked, Command* command) {
        const std::string& text = static_cast<Line*>(command)->text;
        if (text == "self") {
            asked->setSelfCallFlag(true);
            write(*asked, "|SELF|");
            asked->setSelfCallFlag(false);
        }
        asked->write(command);
    };
    worker.onData("a\nb\nc\n", 6);
    EXPECT_EQ(device.written, "a\nb\nc\n");
    EXPECT_EQ(device.writes, 1);
    worker.onData("a\nself\nb\n", 9);
    EXPECT_EQ(device.written, "a\nb\nc\na\n|SELF|self\nb\n");

    // Each of a hundred reads that are not taken is one write; the 101st ends the peer.
    device.accepts = -1;
    for (int i = 0; i < 100; ++i) worker.onData("a\nb\nc\n", 6);
    EXPECT_EQ(worker.pendingWrites(), 100);
    EXPECT_EQ(reason, DisconnectReason::kNone);
    worker.onData("a\n", 2);
    EXPECT_EQ(reason, DisconnectReason::kOverflow);
}

// With a loop and a peer.
template <typename Transport>
struct FlowOver : ::testing::Test {
    using Device = typename Transport::DeviceType;

    LogCapture log;
    Connection<Transport> connection;
    Device device{&connection.server};
    LineParser parser;
    RecordingExecutor executor;
    Worker worker{&device, &parser};
    std::atomic<int> disconnections{0};
    DisconnectReason reason = DisconnectReason::kNone;
    LoopThread loop;

    FlowOver() {
        connection.client.setReceiveBufferSize(1 << 16);
        device.socket().setSendBufferSize(1 << 16);
        executor.disconnected = [this](Worker* gone) {
            reason = gone->disconnectReason();
            ++disconnections;
        };
        loop.connector().addWorkerLocked(&worker, &executor);
    }
    ~FlowOver() override {
        loop.connector().removeWorkerLocked(&worker);
        loop.call([] {});
    }
    // Reads slowly, to the end of the stream.
    std::string readAll() {
        std::string all;
        std::vector<char> buffer(10000);
        while (true) {
            const int count = connection.client.recv(buffer.data(), 10000, 60000);
            if (count < 1) return all;
            all.append(buffer.data(), static_cast<size_t>(count));
            if (all.size() % 7 == 0) std::this_thread::yield();
        }
    }
    DisconnectReason awaitEnd() {
        EXPECT_TRUE(waitUntil([this] { return disconnections > 0; }));
        loop.call([] {});
        EXPECT_EQ(disconnections, 1);
        return reason;
    }
};
using Streams = ::testing::Types<Tcp4Transport, UnixTransport>;
TYPED_TEST_SUITE(FlowOver, Streams);

std::string numbered(size_t size) {
    std::string bytes(size, 0);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

TYPED_TEST(FlowOver, AProducerWaitsForASlowReaderAndLosesNothing) {
    const std::string all = numbered(64 << 20);
    size_t produced = 0;
    size_t most = 0;
    Told told;
    const auto produce = [&](Worker* slow) {
        while (produced < all.size() && slow->pendingBytes() < 1 << 20) {
            const size_t size = std::min<size_t>(all.size() - produced, 100000);
            slow->writeRaw(all.data() + produced, static_cast<int>(size));
            produced += size;
            most = std::max(most, slow->pendingBytes());
        }
        if (produced == all.size()) slow->disconnectWhenWritten(60000);
    };
    told.then = [&](Worker* slow) {
        if (produced < all.size()) produce(slow);
    };
    this->loop.call([&] {
        this->worker.setEagerWriting(true);
        this->worker.setWriteListener(&told, 1 << 18);
        produce(&this->worker);
    });
    EXPECT_EQ(this->readAll(), all);
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kOwnWish);
    EXPECT_LT(most, size_t{2} << 20);
}

TYPED_TEST(FlowOver, LastWordsReachASlowReaderWhateverItSendsMeanwhile) {
    const std::string words = numbered(3 << 20);
    int commands = 0;
    this->executor.command = [&](Worker*, Command*) { ++commands; };
    std::thread([&] {
        queue(this->worker, words);
        this->worker.disconnectWhenWritten(60000);
    }).join();
    EXPECT_EQ(this->connection.client.send("more\nand more\n", 14), 14);
    EXPECT_EQ(this->readAll(), words);
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kOwnWish);
    EXPECT_EQ(commands, 0);
}

TYPED_TEST(FlowOver, LastWordsEndInTimeWhenThePeerDoesNotRead) {
    queue(this->worker, numbered(4 << 20));
    this->worker.disconnectWhenWritten(50);
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kTimeout);
}

TYPED_TEST(FlowOver, APeerThatEndsItsHalfGetsItsAnswersIfThatIsWanted) {
    const std::string answer = numbered(3 << 20);
    this->executor.command = [&](Worker* asked, Command*) { queue(*asked, answer); };
    this->worker.setAllowHalfOpen(true);
    EXPECT_EQ(this->connection.client.send("question\n", 9), 9);
    this->connection.client.shutdownSend();
    std::string got(answer.size(), 0);
    for (size_t read = 0; read < got.size();) {
        const int count = this->connection.client.recv(got.data() + read,
                                                       static_cast<int>(got.size() - read), 60000);
        ASSERT_GT(count, 0);
        read += static_cast<size_t>(count);
    }
    EXPECT_EQ(got, answer);
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kEndOfStream);
}

TYPED_TEST(FlowOver, APausedPeerThatHangsUpLeavesItsBytes) {
    std::string heard;
    this->executor.command = [&](Worker*, Command* command) {
        heard += static_cast<Line*>(command)->text + " ";
    };
    this->loop.call([&] { this->worker.pauseReading(); });
    EXPECT_EQ(this->connection.client.send("last\nwords\n", 11), 11);
    this->connection.client.reset();
    for (int turn = 0; turn < 20; ++turn) this->loop.call([] {});
    queue(this->worker, "in vain");
    for (int turn = 0; turn < 20; ++turn) this->loop.call([] {});
    this->loop.call([&] { EXPECT_EQ(heard, ""); });
    EXPECT_EQ(this->disconnections, 0);
    this->worker.resumeReading();
    this->awaitEnd();
    EXPECT_EQ(heard, "last words ");
}

TYPED_TEST(FlowOver, ReadsAsMuchAtOnceAsItIsToldTo) {
    ASSERT_FALSE(this->device.setReadSize((1 << 20) + 1));
    ASSERT_TRUE(this->device.setReadSize(1 << 16));
    this->loop.call([&] { this->worker.pauseReading(); });
    const std::string line(40000, 'x');
    EXPECT_EQ(this->connection.client.send((line + "\n").data(), 40001), 40001);
    std::atomic<int> commands{0};
    this->executor.command = [&](Worker*, Command* command) {
        EXPECT_EQ(static_cast<Line*>(command)->text, line);
        ++commands;
    };
    this->worker.resumeReading();
    EXPECT_TRUE(waitUntil([&] { return commands == 1; }));
}

TYPED_TEST(FlowOver, SaysWhyItEnded) {
    this->connection.client.reset();
    EXPECT_EQ(this->awaitEnd(), DisconnectReason::kEndOfStream);
    this->worker.enable();
    EXPECT_EQ(this->worker.disconnectReason(), DisconnectReason::kNone);
    this->loop.call([&] { this->device.disconnect(); });
    EXPECT_EQ(this->reason, DisconnectReason::kOwnWish);
}

// A loop that stops with everything written, also when it is told before it runs.
TEST(FlushingStop, LetsASlowReaderHaveEverything) {
    for (const bool beforeRun : {true, false}) {
        Connection<UnixTransport> connection;
        const std::string words = numbered(3 << 20);
        std::string got(words.size(), 0);
        std::thread reader([&] {
            for (size_t read = 0; read < got.size();) {
                const int count = connection.client.recv(
                    got.data() + read, static_cast<int>(got.size() - read), 60000);
                if (count < 1) return;
                read += static_cast<size_t>(count);
            }
        });
        UnixDevice device(&connection.server);
        RecordingExecutor executor;
        Worker worker(&device, nullptr);
        std::thread([&] {
            Connector loop;
            loop.addWorkerLocked(&worker, &executor);
            queue(worker, words);
            if (beforeRun) loop.requestStop(60000);
            std::thread other([&] {
                if (!beforeRun) loop.requestStop(60000);
            });
            loop.run();
            other.join();
            EXPECT_FALSE(worker.hasWrittingData());
            loop.removeWorkerLocked(&worker);
        }).join();
        reader.join();
        EXPECT_EQ(got, words);
    }
}

TEST(FlushingStop, EndsInTimeWhenAPeerDoesNotRead) {
    Connection<UnixTransport> connection;
    UnixDevice device(&connection.server);
    RecordingExecutor executor;
    Worker worker(&device, nullptr);
    std::thread([&] {
        Connector loop;
        loop.addWorkerLocked(&worker, &executor);
        queue(worker, numbered(3 << 20));
        loop.requestStop(50);
        loop.run();
        EXPECT_TRUE(worker.hasWrittingData());
        loop.removeWorkerLocked(&worker);
    }).join();
}

}  // namespace
}  // namespace vyn
