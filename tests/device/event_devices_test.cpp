// SPDX-License-Identifier: Apache-2.0

// Devices that call a function: signals, datagrams and changes of files; sockets from elsewhere.

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <vyn/datagram_device.h>
#include <vyn/inotify_device.h>
#include <vyn/signal_device.h>

#include <atomic>
#include <csignal>
#include <fstream>

#include "support/support.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::Strings;

// Serves the device until nothing waits. A disconnection would be fatal: there is no executor.
void serve(Device& device) {
    ASSERT_TRUE(testing::awaitReadable(device.getFd()));
    for (pollfd entry{device.getFd(), POLLIN, 0}; poll(&entry, 1, 0) == 1;) {
        device.onDataArrival(device.getFd());
    }
}

TEST(SignalDevice, ReportsSignalsWithTheirSenderAndMayBeDeletedMeanwhile) {
    std::vector<int> numbers;
    std::unique_ptr<SignalDevice> device;
    const auto note = [&](const SignalDevice::Signal& signal) {
        EXPECT_EQ(signal.pid, getpid());
        numbers.push_back(signal.number);
        if (signal.number == SIGUSR2) device.reset();
    };
    device = std::make_unique<SignalDevice>(std::vector<int>{SIGUSR1, SIGUSR2}, note);
    kill(getpid(), SIGUSR1);
    serve(*device);
    kill(getpid(), SIGUSR2);
    device->onDataArrival(device->getFd());
    EXPECT_EQ(numbers, (std::vector<int>{SIGUSR1, SIGUSR2}));
    EXPECT_EQ(SignalDevice({-5}, nullptr).getFd(), -1);
}

TEST(DatagramDevice, ReportsEachDatagramWithItsSenderAndAnswers) {
    Strings received;
    DatagramDevice* device = nullptr;
    DatagramDevice server([&](const DatagramDevice::Datagram& datagram) {
        received.emplace_back(static_cast<const char*>(datagram.data), datagram.size);
        EXPECT_EQ(datagram.from.ip(), "127.0.0.1");
        EXPECT_TRUE(device->sendTo(datagram.data, datagram.size, datagram.from));
    });
    device = &server;
    ASSERT_TRUE(server.socket().setV6Only(false) && server.bind(0, "::"));
    Socket client(Socket::UDP);
    ASSERT_TRUE(client.connect("127.0.0.1", server.socket().getHostPort()));
    const std::string large(60000, 'x');
    for (const std::string& text : {std::string("one"), std::string(), large}) {
        client.send(text.data(), static_cast<int>(text.size()));
    }
    serve(server);
    EXPECT_EQ(received, (Strings{"one", "", large}));
    std::string answer(large.size(), '\0');
    for (const int size : {3, 0, 60000}) EXPECT_EQ(client.recv(answer.data(), 60000, 10000), size);
}

TEST(DatagramDevice, IsWatchedOnWhenAnAddressMakesItAnotherSocket) {
    Socket server(Socket::UDP);
    if (!server.setHostIP("::1") || !server.bind(0)) GTEST_SKIP() << "this host has no IPv6";
    std::atomic<bool> isAnswered{false};
    DatagramDevice device([&](const DatagramDevice::Datagram&) { isAnswered = true; });
    testing::ReceivedWorker worker(&device);
    testing::RecordingExecutor executor;
    testing::LoopThread loop;
    loop.call([&] {
        loop.connector().addWorkerLocked(&worker, &executor);
        SocketAddress address;
        ASSERT_TRUE(SocketAddress::parse("::1", server.getHostPort(), &address));
        EXPECT_TRUE(device.sendTo("?", 1, address));
    });
    SocketAddress asker;
    char byte = 0;
    ASSERT_EQ(server.recvFrom(&byte, 1, 10000, &asker), 1);
    server.sendTo("!", 1, asker);
    EXPECT_TRUE(testing::waitUntil([&] { return isAnswered.load(); }));
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

TEST(DatagramDevice, GetsWhatIsSentToItsGroups) {
    int received = 0;
    DatagramDevice member([&](const DatagramDevice::Datagram&) { ++received; });
    ASSERT_TRUE(member.bind(0));
    if (!member.socket().joinGroup("239.1.2.3", "lo")) GTEST_SKIP() << "no multicast here";
    Socket sender(Socket::UDP);
    ASSERT_TRUE(sender.setGroupInterface("lo") && sender.setGroupHops(0));
    SocketAddress group;
    ASSERT_TRUE(SocketAddress::parse("239.1.2.3", member.socket().getHostPort(), &group));
    if (sender.sendTo("in", 2, group) != 2) GTEST_SKIP() << "no multicast here";
    serve(member);
    EXPECT_EQ(received, 1);
    EXPECT_TRUE(member.socket().leaveGroup("239.1.2.3", "lo"));
}

TEST(InotifyDevice, TellsNamesEventsAndTheEndOfAWatch) {
    testing::TemporaryFolder folder;
    const std::string other = folder / "other";
    std::ofstream(other) << 1;
    InotifyDevice device;
    Strings changes;
    device.setOnChange([&](const InotifyDevice::Change& change) {
        changes.push_back(change.path + "|" + change.name + "|" + std::to_string(change.events));
    });
    const int watch = device.addWatch(folder / "", IN_CREATE);
    device.addWatch(other, IN_CLOSE_WRITE);
    std::ofstream(folder / "new") << 1;
    std::ofstream(other) << 2;
    EXPECT_TRUE(device.removeWatch(watch));
    EXPECT_FALSE(device.removeWatch(watch));
    serve(device);
    EXPECT_EQ(changes, (Strings{folder / "|new|256", other + "||8", folder / "||32768"}));
}

TEST(Descriptor, FromElsewhereIsServedAndGivenBack) {
    testing::Connection<testing::Tcp4Transport> connection;
    const int port = connection.client.getHostPort();
    Socket adopted = Socket::fromDescriptor(connection.server.release());
    EXPECT_FALSE(connection.server.isValid());
    EXPECT_EQ(adopted.getRemotePort(), port);
    EXPECT_EQ(connection.client.send("x", 1), 1);
    char byte = 0;
    EXPECT_EQ(adopted.recv(&byte, 1, 10000), 1);
    Socket bound = Socket::fromDescriptor(connection.listener.release());
    ListenerDevice listening(&bound);
    EXPECT_TRUE(connection.transport.client(listening.socket()).isValid());
    EXPECT_FALSE(UnixSocket::fromDescriptor(adopted.fd()).isValid());
    EXPECT_EQ(errno, EAFNOSUPPORT);
}

}  // namespace
}  // namespace vyn
