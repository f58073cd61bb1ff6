// Whole services over real TCP connections.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <vyn/config.h>
#include <vyn/net_device.h>
#include <vyn/worker.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/descriptors.h"
#include "support/line_protocol.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/recording_executor.h"
#include "support/wait.h"

namespace vyn {
namespace {

using testing::allowDescriptors;
using testing::Line;
using testing::LineParser;
using testing::LogCapture;
using testing::LoopThread;
using testing::openDescriptors;
using testing::RecordingExecutor;
using testing::waitUntil;

constexpr int kPatienceMs = 60000;

// An accepted connection. Its worker is deleted before the rest, as an application might.
struct Accepted {
    explicit Accepted(const Socket* socket)
        : device(std::make_unique<NetDevice>(socket)),
          worker(std::make_unique<Worker>(device.get(), &parser)) {}
    LineParser parser;
    std::unique_ptr<NetDevice> device;
    std::unique_ptr<Worker> worker;
};

// A service on a loop of its own that answers each line with "re: " and the line.
class LineService {
  public:
    LineService() {
        executor.newConnection = [this](Worker*, int fd, void* data) {
            EXPECT_EQ(fd, listener.getFd());
            const auto* socket = static_cast<const Socket*>(data);
            if (!socket->isValid()) return;
            auto accepted = std::make_unique<Accepted>(socket);
            Worker* worker = accepted->worker.get();
            connections[worker] = std::move(accepted);
            if (onAccepted) onAccepted(*connections[worker]->device);
            loop.connector().addWorkerLocked(worker, &executor);
        };
        executor.command = [this](Worker* worker, Command* command) {
            ASSERT_EQ(connections.count(worker), 1u);
            ++commands;
            const std::string& text = static_cast<Line*>(command)->text;
            if (onCommand && onCommand(worker, text)) return;
            Line answer("re: " + text);
            worker->write(&answer);
        };
        executor.disconnected = [this](Worker* worker) {
            ++disconnections;
            drop(worker);
        };
        loop.call([this] {
            listening.attach(&loop.connector(), &executor);
            ASSERT_TRUE(listener.listen(0, "127.0.0.1"));
            loop.connector().addWorkerLocked(&listening, &executor);
        });
    }
    ~LineService() {
        loop.call([this] {
            loop.connector().removeWorkerLocked(&listening);
            while (!connections.empty()) drop(connections.begin()->first);
        });
    }

    // Removes and deletes a worker with its device; the parser, which may be at work, goes later.
    void drop(Worker* worker) {
        loop.connector().removeWorkerLocked(worker);
        std::unique_ptr<Accepted> dropped = std::move(connections.at(worker));
        connections.erase(worker);
        dropped->worker.reset();
        dropped->device.reset();
        retired.push_back(std::move(dropped));
    }

    Socket connect() {
        Socket client(Socket::TCP);
        EXPECT_TRUE(client.connect("127.0.0.1", listener.socket().getHostPort(), kPatienceMs));
        return client;
    }

    LoopThread loop;
    ListenerDevice listener;
    Worker listening{&listener, nullptr};
    RecordingExecutor executor;
    std::function<void(NetDevice&)> onAccepted;
    std::function<bool(Worker*, const std::string&)> onCommand;  // true when it dealt with it
    std::map<Worker*, std::unique_ptr<Accepted>> connections;
    std::vector<std::unique_ptr<Accepted>> retired;
    std::atomic<int> commands{0};
    std::atomic<int> disconnections{0};
};

void sendText(Socket& socket, const std::string& text) {
    ASSERT_EQ(socket.send(text.data(), static_cast<int>(text.size())),
              static_cast<int>(text.size()));
}

// What comes until `size` bytes are there or the stream ends.
std::string receive(Socket& socket, size_t size) {
    std::string received(size, '\0');
    size_t count = 0;
    while (count < size) {
        const int got = socket.recv(&received[count], static_cast<int>(size - count), kPatienceMs);
        if (got < 1) break;
        count += static_cast<size_t>(got);
    }
    received.resize(count);
    return received;
}

std::string ask(Socket& socket, const std::string& line) {
    sendText(socket, line + "\n");
    return receive(socket, line.size() + 5);
}

bool isAtEnd(Socket& socket) {
    char byte;
    return socket.recv(&byte, 1, kPatienceMs) < 1;
}

std::string numberedLines(int connection, const std::string& lead) {
    std::string lines;
    for (int frame = 0; frame < 100; ++frame) {
        lines += lead + std::to_string(connection) + "/" + std::to_string(frame) + "\n";
    }
    return lines;
}

TEST(TcpService, AnswersThousandConnectionsByteForByteWhileTheyComeAndGo) {
    constexpr int kConnections = 1000;
    allowDescriptors(2 * kConnections + 200);
    // The first listener of a process takes a descriptor in reserve for good.
    ListenerDevice(0, "127.0.0.1");
    const int descriptorsBefore = openDescriptors();
    {
        LineService service;
        // The half that says goodbye is deleted inside the command, with more commands behind it.
        service.onCommand = [&](Worker* worker, const std::string& text) {
            if (text == "bye") service.drop(worker);
            return text == "bye";
        };
        // A second wave, which gets the descriptors that the first is giving back.
        for (int wave = 0; wave < 2; ++wave) {
            std::vector<Socket> clients;
            for (int i = 0; i < kConnections; ++i) {
                clients.push_back(service.connect());
                sendText(clients.back(), numberedLines(i, ""));
            }
            for (int i = 0; i < kConnections; ++i) {
                const std::string expected = numberedLines(i, "re: ");
                ASSERT_EQ(receive(clients[static_cast<size_t>(i)], expected.size()), expected);
            }
            for (int i = 0; i < kConnections; i += 2) {
                sendText(clients[static_cast<size_t>(i)], "bye\nunheard\nunheard\n");
                clients[static_cast<size_t>(i) + 1].reset();
            }
            for (int i = 0; i < kConnections; i += 2) {
                EXPECT_TRUE(isAtEnd(clients[static_cast<size_t>(i)]));
            }
        }
        EXPECT_TRUE(waitUntil([&] { return service.disconnections == kConnections; }));
        service.loop.call([&] { EXPECT_TRUE(service.connections.empty()); });
        EXPECT_EQ(service.commands, 2 * (100 * kConnections + kConnections / 2));
    }
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
}

TEST(TcpService, GoesOnAfterResetsHalfClosesAndRubbish) {
    LogCapture log;
    LineService service;
    Socket steady = service.connect();
    EXPECT_EQ(ask(steady, "before"), "re: before\n");

    {
        Socket resetting = service.connect();
        EXPECT_EQ(ask(resetting, "x"), "re: x\n");
        const linger atOnce{1, 0};
        setsockopt(resetting.fd(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
    EXPECT_TRUE(waitUntil([&] { return service.disconnections == 1; }));
    EXPECT_EQ(log.count("[104] Connection reset by peer. read. ret:-1"), 1);

    Socket halfClosing = service.connect();
    sendText(halfClosing, "incomplete");
    EXPECT_TRUE(halfClosing.shutdownSend());
    EXPECT_TRUE(isAtEnd(halfClosing));
    EXPECT_EQ(service.disconnections, 2);
    EXPECT_EQ(log.count("read. ret:0"), 1);

    EXPECT_EQ(ask(steady, ""), "re: \n");
    const std::string rubbish("\0\xFF\r\x80", 4);
    EXPECT_EQ(ask(steady, rubbish), "re: " + rubbish + "\n");
    const std::string large(1 << 20, 'x');
    EXPECT_EQ(ask(steady, large), "re: " + large + "\n");
}

TEST(TcpService, DisconnectsASilentPeerByItsHeartbeatOnly) {
    class ImpatientWorker : public Worker {
      public:
        using Worker::Worker;
        bool hasRemoteTimedout(long sinceLastRead) override { return sinceLastRead > 1500; }
    };
    LineService service;
    service.executor.newConnection = [&](Worker*, int, void* data) {
        auto accepted = std::make_unique<Accepted>(static_cast<const Socket*>(data));
        accepted->worker =
            std::make_unique<ImpatientWorker>(accepted->device.get(), &accepted->parser);
        Worker* worker = accepted->worker.get();
        service.connections[worker] = std::move(accepted);
        service.loop.connector().addWorkerLocked(worker, &service.executor);
    };
    service.executor.heartbitTimeout = [](Worker* worker) { worker->getDevice()->disconnect(); };
    Socket silent = service.connect();
    Socket talking = service.connect();
    std::atomic<bool> silentEnded{false};
    std::thread watcher([&] {
        EXPECT_TRUE(isAtEnd(silent));
        silentEnded = true;
    });
    while (!silentEnded) {
        EXPECT_EQ(ask(talking, "alive"), "re: alive\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    watcher.join();
    EXPECT_EQ(ask(talking, "still alive"), "re: still alive\n");
    EXPECT_EQ(service.disconnections, 1);
}

// Switches asynchronous writing on while it lives.
struct AsyncWriting {
    AsyncWriting() { config::setAsyncWritting(true); }
    ~AsyncWriting() { config::setAsyncWritting(false); }
};

void shrinkBuffer(NetDevice& device) { device.socket().setSendBufferSize(32 * 1024); }

TEST(TcpServiceAsync, DropsAPeerThatDoesNotReadWhileTheOthersGoOn) {
    LogCapture log;
    const std::string chunk(64 * 1024, 'f');
    AsyncWriting async;
    LineService service;
    service.onAccepted = shrinkBuffer;
    service.onCommand = [&](Worker* worker, const std::string& text) {
        if (text == "flood") worker->writeRaw(chunk.data(), static_cast<int>(chunk.size()));
        return text == "flood";
    };
    Socket deaf = service.connect();
    Socket other = service.connect();
    while (service.disconnections == 0) {
        sendText(deaf, "flood\n");
        ASSERT_EQ(ask(other, "between"), "re: between\n");
    }
    EXPECT_EQ(log.count("\033[1;31mAlert! \033[mclient blocks 101 writting requests, "
                        "disconnect it. Worker(0x"),
              1);
    EXPECT_EQ(log.count("Alert!"), 1);
    EXPECT_EQ(service.disconnections, 1);
    EXPECT_EQ(ask(other, "after"), "re: after\n");
}

TEST(TcpServiceAsync, GivesASlowReaderEveryByteInOrder) {
    // 90 writes, each of its own length and letters.
    std::vector<std::string> writes;
    std::string expected;
    for (size_t i = 0; i < 90; ++i) {
        writes.emplace_back(1 + i * 997, static_cast<char>('!' + i));
        expected += writes.back();
    }
    AsyncWriting async;
    LineService service;
    service.onAccepted = shrinkBuffer;
    service.onCommand = [&](Worker* worker, const std::string&) {
        for (const std::string& bytes : writes) {
            worker->writeRaw(bytes.data(), static_cast<int>(bytes.size()));
        }
        return true;
    };
    Socket slow = service.connect();
    sendText(slow, "all\n");
    std::string received;
    while (received.size() < expected.size()) {
        const std::string piece =
            receive(slow, std::min<size_t>(30011, expected.size() - received.size()));
        ASSERT_FALSE(piece.empty());
        received += piece;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(received == expected);
    EXPECT_EQ(service.disconnections, 0);
}

TEST(TcpServiceAsync, WritesOfOtherThreadsReachThePeerWhole) {
    AsyncWriting async;
    LineService service;
    Socket client = service.connect();
    EXPECT_EQ(ask(client, "hello"), "re: hello\n");
    Worker* worker = nullptr;
    service.loop.call([&] { worker = service.connections.begin()->first; });

    constexpr int kThreads = 3;
    constexpr int kWrites = 500;
    std::atomic<int> read{0};
    std::vector<std::thread> writers;
    for (int thread = 0; thread < kThreads; ++thread) {
        writers.emplace_back([&, thread] {
            for (int i = 0; i < kWrites; ++i) {
                // Never more than the worker queues for a peer that reads.
                while (i - read / kThreads > 20) std::this_thread::yield();
                const std::string line = std::to_string(thread) + ":" + std::to_string(i) + "\n";
                worker->queueWritting(line.data(), static_cast<int>(line.size()));
            }
        });
    }
    std::vector<int> next(kThreads, 0);
    for (std::string line; read < kThreads * kWrites;) {
        char byte;
        ASSERT_EQ(client.recv(&byte, 1, kPatienceMs), 1);
        if (byte != '\n') {
            line += byte;
            continue;
        }
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(line.c_str(), "%d:%d", &thread, &number), 2) << line;
        ASSERT_EQ(number, next[static_cast<size_t>(thread)]++);
        line.clear();
        ++read;
    }
    for (std::thread& writer : writers) writer.join();
}

TEST(UdpService, CarriesOneDatagramARead) {
    LoopThread loop;
    RecordingExecutor executor;
    std::vector<std::string> datagrams;
    std::atomic<int> count{0};
    class DatagramWorker : public Worker {
      public:
        DatagramWorker(Device* device, std::function<void(const std::string&)> sink)
            : Worker(device, nullptr), mSink(std::move(sink)) {}
        bool handledBeforeParser(const void* data, int len) override {
            mSink(std::string(static_cast<const char*>(data), static_cast<size_t>(len)));
            writeRaw(data, len);
            return true;
        }

      private:
        std::function<void(const std::string&)> mSink;
    };
    Socket server(Socket::UDP);
    server.setHostIP("127.0.0.1");
    ASSERT_TRUE(server.bind(0));
    Socket client(Socket::UDP);
    client.setHostIP("127.0.0.1");
    ASSERT_TRUE(client.bind(0));
    ASSERT_TRUE(client.connect("127.0.0.1", server.getHostPort()));
    ASSERT_TRUE(server.connect("127.0.0.1", client.getHostPort()));

    NetDevice device(&server);
    DatagramWorker worker(&device, [&](const std::string& datagram) {
        datagrams.push_back(datagram);
        ++count;
    });
    const std::vector<std::string> sent{"one", std::string(2048, 'x'), "three"};
    for (const std::string& datagram : sent) sendText(client, datagram);
    loop.connector().addWorkerLocked(&worker, &executor);
    EXPECT_TRUE(waitUntil([&] { return count == 3; }));
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
    EXPECT_EQ(datagrams, sent);
    char answer[4096];
    for (const std::string& datagram : sent) {
        ASSERT_EQ(client.recv(answer, sizeof answer, kPatienceMs),
                  static_cast<int>(datagram.size()));
    }
}

}  // namespace
}  // namespace vyn
