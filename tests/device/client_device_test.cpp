// SPDX-License-Identifier: Apache-2.0

// Clients that connect while their loop goes on.

#include <gtest/gtest.h>
#include <vyn/client_device.h>

#include "support/support.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::waitUntil;

// A client in a loop, and what it reports.
template <typename Client>
struct ServedClient {
    template <typename... Address>
    explicit ServedClient(int mostAttempts, int timeoutMs, const Address&... address)
        : device(address..., {timeoutMs, true, 1, 20, mostAttempts},
                 {[this] { ++connected; },
                  [this](const ConnectFailure& failure) {
                      last = failure;
                      ++failed;
                  }}) {
        executor.disconnected = [this](Worker*) { ++(device.willReconnect() ? lost : ended); };
        loop.call([this] {
            loop.connector().addWorkerLocked(&worker, &executor);
            EXPECT_TRUE(device.connect());
            EXPECT_EQ(connected + failed, 0);
        });
    }
    ~ServedClient() {
        loop.call([this] { loop.connector().removeWorkerLocked(&worker); });
    }

    std::atomic<int> connected{0}, failed{0}, lost{0}, ended{0};
    ConnectFailure last{};
    testing::RecordingExecutor executor;
    Client device;
    testing::ReceivedWorker worker{&device};
    testing::LoopThread loop;
};

TEST(ClientDevice, StaysWithItsServerWhateverBecomesOfTheConnection) {
    auto listener = std::make_unique<ListenerDevice>(0, "127.0.0.1");
    const int port = listener->socket().getHostPort();
    const int before = testing::openDescriptors();
    auto client = std::make_unique<ServedClient<ClientDevice>>(0, 5000, "127.0.0.1", port);
    for (int i = 1; i <= 1000; ++i) {
        ASSERT_TRUE(testing::awaitReadable(listener->getFd()));
        Socket server = listener->socket().accept();
        ASSERT_TRUE(waitUntil([&] { return client->connected == i; }));
        client->worker.queueWritting("hello", 5);
        char bytes[6] = {};
        ASSERT_EQ(server.recv(bytes, sizeof bytes, 10000), 5) << i;
        client->worker.queueWritting("lost", i % 2 * 4);  // and unread: the end is a reset
        if (i == 500) listener.reset();                   // and is away for a while
        server.reset();
        ASSERT_TRUE(waitUntil([&] { return client->lost == i; }));
        if (i != 500) continue;
        ASSERT_TRUE(waitUntil([&] { return client->failed >= 3; }));
        EXPECT_EQ(client->last.error, ECONNREFUSED);
        EXPECT_LE(client->last.retryMs, 20);
        listener = std::make_unique<ListenerDevice>(port, "127.0.0.1");
    }
    client->loop.call([&] { client->device.disconnect(); });
    EXPECT_EQ(client->ended, 1);
    client.reset();
    EXPECT_EQ(testing::openDescriptors(), before);
}

TEST(ClientDevice, GivesUpAndSaysWhy) {
    Socket silent(Socket::TCP);
    ASSERT_TRUE(silent.setHostIP("127.0.0.1") && silent.bind(0));
    ServedClient<ClientDevice> refused(3, 5000, "127.0.0.1", silent.getHostPort());
    ASSERT_TRUE(waitUntil([&] { return refused.ended == 1; }));
    EXPECT_EQ(refused.failed, 3);
    EXPECT_EQ(refused.last.retryMs, -1);

    const testing::FullBacklog full(silent);
    ServedClient<ClientDevice> unanswered(1, 20, "127.0.0.1", silent.getHostPort());
    ASSERT_TRUE(waitUntil([&] { return unanswered.ended == 1; }));
    EXPECT_TRUE(unanswered.last.timedOut);
}

TEST(ClientDevice, GoesOnWhateverItsApplicationDoesWithoutAConnection) {
    struct Silent : testing::RecordingExecutor, Worker {
        using Worker::Worker;
        bool hasRemoteTimedout(long) override { return true; }
    };
    auto listener = std::make_unique<ListenerDevice>(0, "127.0.0.1");
    const int port = listener->socket().getHostPort();
    listener.reset();
    testing::LoopThread loop;
    ClientDevice device("127.0.0.1", port, {5000, true, 1, 20, 2});
    Silent worker(&device, nullptr);
    std::atomic<int> overflows{0}, ends{0}, silences{0};
    bool isOver = false;
    worker.heartbitTimeout = [&](Worker*) { silences += !device.isConnected(); };
    worker.disconnected = [&](Worker*) {
        const bool goesOn = device.willReconnect();
        ++(goesOn ? overflows : ends);
        EXPECT_EQ(!isOver && device.connect(), !isOver && !goesOn);
    };
    loop.call([&] {
        loop.connector().addWorkerLocked(&worker, &worker);
        EXPECT_TRUE(device.connect());
    });
    ASSERT_TRUE(waitUntil([&] { return ends >= 3; }));  // it has given up and begun anew
    loop.call([&] {
        for (int i = 0; i <= 100; ++i) worker.queueWritting("x", 1);  // one too many
        worker.pauseReading();
        worker.checkHeartbit();
    });
    listener = std::make_unique<ListenerDevice>(port, "127.0.0.1");
    ASSERT_TRUE(testing::awaitReadable(listener->getFd()));
    Socket server = listener->socket().accept();
    ASSERT_TRUE(waitUntil([&] { return overflows == 1; }));
    EXPECT_EQ(silences, 0);
    loop.call([&] { worker.queueWritting("a", 1), worker.resumeReading(); });
    char byte = 0;
    EXPECT_EQ(server.recv(&byte, 1, 10000), 1);
    EXPECT_EQ(byte, 'a');
    const int before = ends;
    loop.call([&] { isOver = true, worker.disconnectWhenWritten(10000); });
    server.reset();
    ASSERT_TRUE(waitUntil([&] { return ends > before; }));  // and no other connection follows
    loop.call([&] { EXPECT_FALSE(device.willReconnect() || device.isConnected()); });
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

}  // namespace
}  // namespace vyn
