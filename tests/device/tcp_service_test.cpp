// SPDX-License-Identifier: Apache-2.0

// Whole services over real TCP connections.

#include <vyn/net_device.h>

#include <map>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

// An accepted connection.
struct Accepted {
    explicit Accepted(const Socket* socket) : device(socket), worker(&device, &parser) {}
    LineParser parser;
    NetDevice device;
    Worker worker;
};

// A service on a loop of its own that answers each line with "re: " and the line.
struct TcpService : ::testing::Test {
    LoopThread loop;
    ListenerDevice listener;
    Worker listening{&listener, nullptr};
    RecordingExecutor executor;
    std::function<bool(Worker*, const std::string&)> onCommand;  // true when it dealt with it
    std::map<Worker*, std::unique_ptr<Accepted>> connections;
    std::atomic<int> disconnections{0};

    TcpService() {
        executor.newConnection = [this](Worker*, int, void* data) {
            auto accepted = std::make_unique<Accepted>(static_cast<const Socket*>(data));
            if (accepted->device.getFd() < 0) return;
            accepted->device.socket().setSendBufferSize(32 * 1024);
            Worker* worker = &accepted->worker;
            connections[worker] = std::move(accepted);
            loop.connector().addWorkerLocked(worker, &executor);
        };
        executor.command = [this](Worker* worker, Command* command) {
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
            ASSERT_TRUE(listener.listen(0, "127.0.0.1"));
            loop.connector().addWorkerLocked(&listening, &executor);
        });
    }
    ~TcpService() override {
        config::setAsyncWritting(false);
        loop.call([this] {
            loop.connector().removeWorkerLocked(&listening);
            while (!connections.empty()) drop(connections.begin()->first);
        });
    }

    void drop(Worker* worker) {
        loop.connector().removeWorkerLocked(worker);
        connections.erase(worker);
    }
    Socket connect() {
        Socket client(Socket::TCP);
        EXPECT_TRUE(client.connect("127.0.0.1", listener.socket().getHostPort(), 60000));
        return client;
    }
};

void sendText(Socket& socket, const std::string& text) {
    const int size = static_cast<int>(text.size());
    ASSERT_EQ(socket.send(text.data(), size), size);
}

// What comes until `size` bytes are there or the stream ends.
std::string receive(Socket& socket, size_t size) {
    std::string received(size, '\0');
    size_t count = 0;
    while (count < size) {
        const int got = socket.recv(&received[count], static_cast<int>(size - count), 60000);
        if (got < 1) break;
        count += static_cast<size_t>(got);
    }
    return received.substr(0, count);
}

std::string numberedLines(size_t connection, const std::string& lead) {
    std::string lines;
    for (size_t i = 0; i < 100; ++i) lines += lead + std::to_string(1000 * connection + i) + "\n";
    return lines;
}

TEST_F(TcpService, AnswersThousandConnectionsByteForByteWhileTheyComeAndGo) {
    constexpr size_t kConnections = 1000;
    allowDescriptors(2 * kConnections + 200);
    const int descriptorsBefore = openDescriptors();
    // The half that says goodbye is deleted inside the command, with more commands behind it.
    onCommand = [&](Worker* worker, const std::string& text) {
        if (text == "bye") drop(worker);
        return text == "bye";
    };
    LogCapture log;
    const linger atOnce{1, 0};  // resets a connection instead of closing it
    // A second wave, which gets the descriptors that the first is giving back.
    for (int wave = 0; wave < 2; ++wave) {
        std::vector<Socket> clients;
        for (size_t i = 0; i < kConnections; ++i) {
            clients.push_back(connect());
            sendText(clients.back(), numberedLines(i, ""));
        }
        for (size_t i = 0; i < kConnections; ++i) {
            const std::string expected = numberedLines(i, "re: ");
            ASSERT_EQ(receive(clients[i], expected.size()), expected);
        }
        for (size_t i = 0; i < kConnections; i += 2) {
            sendText(clients[i], "bye\nunheard\nunheard\n");
            setsockopt(clients[i + 1].fd(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
            clients[i + 1].reset();
        }
        for (size_t i = 0; i < kConnections; i += 2) EXPECT_EQ(receive(clients[i], 1), "");
    }
    EXPECT_TRUE(waitUntil([&] { return disconnections == int{kConnections}; }));
    EXPECT_EQ(log.count("[104] Connection reset by peer. read. ret:-1"), int{kConnections});
    loop.call([&] { EXPECT_TRUE(connections.empty()); });
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
}

TEST_F(TcpService, GivesASlowReaderEveryByteInOrder) {
    // 90 writes, each of its own length and letters.
    std::string expected;
    for (size_t i = 0; i < 90; ++i) {
        expected.append(1 + i * 997, static_cast<char>('!' + i));
    }
    config::setAsyncWritting(true);
    loop.call([&] {
        onCommand = [&](Worker* worker, const std::string&) {
            const char* bytes = expected.data();
            for (int i = 0; i < 90; ++i) {
                worker->writeRaw(bytes, 1 + i * 997);
                bytes += 1 + i * 997;
            }
            return true;
        };
    });
    Socket slow = connect();
    sendText(slow, "all\n");
    for (size_t at = 0; at < expected.size(); at += 30011) {
        const std::string piece = expected.substr(at, 30011);
        ASSERT_TRUE(receive(slow, piece.size()) == piece) << "at " << at;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    loop.call([&] { onCommand = nullptr; });
}

}  // namespace
}  // namespace vyn
