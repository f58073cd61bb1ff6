// Clients that connect while their loop goes on.

#include <gtest/gtest.h>
#include <vyn/client_device.h>
#include <vyn/config.h>
#include <vyn/network.h>

#include <atomic>

#include "support/support.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::waitUntil;

// A client in a loop, and what it reports.
template <typename Client>
struct ServedClient {
    template <typename... Address>
    explicit ServedClient(const ClientOptions& options, const Address&... address)
        : device(address..., options,
                 {[this] { ++connected; },
                  [this](const ConnectFailure& failure) {
                      last = failure;
                      ++failed;
                  }}),
          worker(&device) {
        executor.disconnected = [this](Worker*) { ++(device.willReconnect() ? lost : ended); };
        loop.call([this] {
            loop.connector().addWorkerLocked(&worker, &executor);
            EXPECT_TRUE(device.connect());
            EXPECT_FALSE(device.connect());
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
    testing::ReceivedWorker worker;
    testing::LoopThread loop;
};

ClientOptions persistent() {
    ClientOptions options;
    options.reconnect = true;
    options.firstDelayMs = 1;
    options.longestDelayMs = 20;
    return options;
}

template <typename Server>
auto acceptWithin(Server& listener) {
    EXPECT_TRUE(testing::awaitReadable(listener.fd()));
    return listener.accept();
}

TEST(ClientDevice, StaysWithItsServerWhateverBecomesOfTheConnection) {
    config::setAsyncWritting(true);
    Socket listener = testing::Tcp4Transport().listener();
    const int port = listener.getHostPort();
    const int before = testing::openDescriptors();
    {
        ServedClient<ClientDevice> client(persistent(), "127.0.0.1", port);
        for (int i = 1; i <= 1000; ++i) {
            Socket server = acceptWithin(listener);
            ASSERT_TRUE(waitUntil([&] { return client.connected == i; }));
            client.worker.queueWritting("hello", 5);
            char bytes[6] = {};
            ASSERT_EQ(server.recv(bytes, sizeof bytes, 10000), 5) << i;
            if (i % 2 != 0) {  // ends with a reset, in the middle of a write
                const linger abortive{1, 0};
                setsockopt(server.fd(), SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
                client.worker.queueWritting("lost", 4);
            }
            if (i == 500) listener.reset();  // and is away for a while
            server.reset();
            ASSERT_TRUE(waitUntil([&] { return client.lost == i; }));
            if (i != 500) continue;
            ASSERT_TRUE(waitUntil([&] { return client.failed >= 3; }));
            EXPECT_EQ(client.last.error, ECONNREFUSED);
            EXPECT_LE(client.last.retryMs, 20);
            listener = Socket(Socket::TCP);
            ASSERT_TRUE(listener.setHostIP("127.0.0.1") && listener.bind(port) &&
                        listener.listen());
        }
        EXPECT_EQ(client.ended, 0);
        Socket server = acceptWithin(listener);
        client.loop.call([&] { client.device.disconnect(); });
        EXPECT_EQ(client.ended, 1);
        EXPECT_FALSE(client.device.willReconnect());
    }
    EXPECT_EQ(testing::openDescriptors(), before);
    config::setAsyncWritting(false);
}

TEST(ClientDevice, GivesUpAndSaysWhy) {
    ClientOptions options = persistent();
    options.mostAttempts = 3;
    Socket silent(Socket::TCP);
    ASSERT_TRUE(silent.setHostIP("127.0.0.1") && silent.bind(0));
    ServedClient<ClientDevice> refused(options, "127.0.0.1", silent.getHostPort());
    ASSERT_TRUE(waitUntil([&] { return refused.ended == 1; }));
    EXPECT_EQ(refused.failed, 3);
    EXPECT_EQ(refused.last.error, ECONNREFUSED);
    EXPECT_EQ(refused.last.retryMs, -1);

    ::listen(silent.fd(), 0);  // a full backlog leaves attempts unanswered
    std::vector<Socket> fillers;
    for (int i = 0; i < 3; ++i) {
        fillers.emplace_back(Socket::TCP);
        fillers.back().startConnect("127.0.0.1", silent.getHostPort());
    }
    ASSERT_TRUE(testing::awaitReadable(silent.fd()));
    options = ClientOptions();
    options.timeoutMs = 20;
    ServedClient<ClientDevice> unanswered(options, "127.0.0.1", silent.getHostPort());
    ASSERT_TRUE(waitUntil([&] { return unanswered.ended == 1; }));
    EXPECT_TRUE(unanswered.last.timedOut);
}

TEST(UnixClientDevice, ConnectsWhenItsServerAppearsAndWritesWhatWaited) {
    testing::UnixTransport transport;
    const std::string path = transport.folder / "socket";
    ServedClient<UnixClientDevice> client(persistent(), path);
    client.worker.queueWritting("early", 5);
    ASSERT_TRUE(waitUntil([&] { return client.failed >= 2; }));
    EXPECT_EQ(client.last.error, ENOENT);
    UnixSocket listener(UnixSocket::STREAM);
    ASSERT_TRUE(listener.bind(path) && listener.listen());
    UnixSocket server = acceptWithin(listener);
    char bytes[8] = {};
    EXPECT_EQ(server.recv(bytes, sizeof bytes, 10000), 5);
    EXPECT_EQ(client.ended + client.lost, 0);
}

TEST(Resolve, FindsAddressesOfNames) {
    const auto numeric = helper::resolve("127.0.0.1", 80);
    ASSERT_EQ(numeric.size(), 1u);
    EXPECT_EQ(numeric[0].ip() + ":" + std::to_string(numeric[0].port()), "127.0.0.1:80");
    EXPECT_FALSE(helper::resolve("localhost", 80).empty());
    EXPECT_TRUE(helper::resolve("999.0.0.1.", 80).empty());
}

}  // namespace
}  // namespace vyn
