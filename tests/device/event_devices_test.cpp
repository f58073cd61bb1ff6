// SPDX-License-Identifier: Apache-2.0

// Signals, datagrams and the console.

#include <vyn/console_device.h>
#include <vyn/datagram_device.h>
#include <vyn/signal_device.h>

#include <atomic>
#include <csignal>
#include <cstring>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

// Serves the device until nothing waits. A disconnection would be fatal: there is no executor.
void serve(Device& device) {
    ASSERT_TRUE(awaitReadable(device.getFd()));
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
    testing::ReceivedWorker worker(&server);
    worker.queueWritting("nobody's", 8);
    EXPECT_TRUE(worker.performWrite());  // what can never be sent does not stay
}

TEST(DatagramDevice, IsWatchedOnWhenAnAddressMakesItAnotherSocket) {
    Socket server(Socket::UDP);
    if (!server.setHostIP("::1") || !server.bind(0)) GTEST_SKIP() << "this host has no IPv6";
    std::atomic<bool> isAnswered{false};
    DatagramDevice device([&](const DatagramDevice::Datagram&) { isAnswered = true; });
    ReceivedWorker worker(&device);
    RecordingExecutor executor;
    LoopThread loop;
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
    EXPECT_TRUE(waitUntil([&] { return isAnswered.load(); }));
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

TEST(DatagramDevice, GetsWhatIsSentToItsGroups) {
    int received = 0;
    DatagramDevice member([&](const DatagramDevice::Datagram&) { ++received; });
    Socket sender(Socket::UDP);
    SocketAddress group;
    if (!member.bind(0) || !member.socket().joinGroup("239.1.2.3", "lo") ||
        !sender.setGroupInterface("lo") ||
        !SocketAddress::parse("239.1.2.3", member.socket().getHostPort(), &group) ||
        sender.sendTo("in", 2, group) != 2) {
        GTEST_SKIP() << "no multicast here";
    }
    serve(member);
    EXPECT_EQ(received, 1);
    EXPECT_TRUE(member.socket().leaveGroup("239.1.2.3", "lo"));
}

// What the console shows of `bytes` to a reader at a pipe that holds less.
std::string shown(const std::string& bytes) {
    Pipe output;
    fcntl(output.writeEnd(), F_SETFL, O_NONBLOCK);
    std::string received;
    std::thread reader([&] {
        for (char byte; read(output.readEnd(), &byte, 1) == 1;) received += byte;
    });
    {
        ConsoleRedirect redirect(STDIN_FILENO, output.writeEnd());
        const int size = static_cast<int>(bytes.size());
        EXPECT_EQ(ConsoleDevice().write(bytes.data(), size), size);
    }
    output.closeWriteEnd();
    reader.join();
    return received;
}

TEST(ConsoleDevice, EscapesEveryByteThatATerminalMightActOnAndLosesNone) {
    std::string bytes;
    std::string expected;
    for (int i = 0; i < 256 * 100; ++i) {
        const char byte = static_cast<char>(i);
        char text[8] = {byte};
        const bool isSafe = byte != 0 && std::strchr("\t\n\r \"", byte) != nullptr;
        if (!isSafe && (byte < '$' || byte > '~')) std::snprintf(text, 5, "\\x%02x", i % 256);
        bytes += byte;
        expected += text;
    }
    EXPECT_TRUE(shown(bytes) == expected);
}

TEST(ConsoleDevice, WritesFromALoopThatCanNotWatchItsInput) {
    Pipe output;
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ConsoleRedirect redirect(nothing, output.writeEnd());
    close(nothing);
    ConsoleDevice device;
    ReceivedWorker worker(&device);
    RecordingExecutor executor;
    LoopThread loop;
    loop.connector().addWorkerLocked(&worker, &executor);
    worker.queueWritting("text", 4);
    EXPECT_TRUE(waitUntil([&] { return !worker.hasWrittingData(); }));
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

TEST(ConsoleDevice, ReadsToItsEndClosesNothingAndSurvivesAReaderThatIsGone) {
    Pipe input, output;
    output.closeReadEnd();
    LogCapture capture;
    RecordingExecutor executor;
    int disconnections = 0;
    executor.disconnected = [&](Worker*) { ++disconnections; };
    ASSERT_EQ(write(input.writeEnd(), "quit", 4), 4);
    input.closeWriteEnd();
    {
        ConsoleRedirect redirect(input.readEnd(), output.writeEnd());
        ConsoleDevice device;
        ReceivedWorker worker(&device);
        worker.attach(nullptr, &executor);
        device.onDataArrival(device.getFd());
        device.disconnect();
        EXPECT_EQ(worker.chunks, Strings{"quit"});
        EXPECT_EQ(disconnections, 0);
        device.onDataArrival(STDIN_FILENO);
        EXPECT_EQ(device.write("text", 4), 4);
    }
    EXPECT_EQ(disconnections, 1);
    EXPECT_EQ(capture.count("[32] Broken pipe. write to the console fail. the rest of 4 bytes"), 1);
}

}  // namespace
}  // namespace vyn
