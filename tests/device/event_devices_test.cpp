// Devices that call a function: signals, datagrams and changes of files; and sockets from
// elsewhere.

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <vyn/datagram_device.h>
#include <vyn/inotify_device.h>
#include <vyn/signal_device.h>
#include <vyn/unix_device.h>

#include <csignal>
#include <fstream>
#include <memory>

#include "support/support.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::awaitReadable;
using testing::LogCapture;

// Serves the device until nothing waits. A disconnection would be fatal: there is no executor.
template <typename Served>
void serve(Served& device) {
    ASSERT_TRUE(awaitReadable(device.getFd()));
    for (pollfd entry{device.getFd(), POLLIN, 0}; poll(&entry, 1, 0) == 1;) {
        device.onDataArrival(device.getFd());
    }
}

TEST(SignalDevice, ReportsSignalsWithTheirSenderAndMayBeDeletedMeanwhile) {
    std::vector<int> numbers;
    std::unique_ptr<SignalDevice> device;
    device = std::make_unique<SignalDevice>(std::vector<int>{SIGUSR1, SIGUSR2},
                                            [&](const SignalDevice::Signal& signal) {
                                                EXPECT_EQ(signal.pid, getpid());
                                                numbers.push_back(signal.number);
                                                if (signal.number == SIGUSR2) device.reset();
                                            });
    kill(getpid(), SIGUSR1);
    serve(*device);
    kill(getpid(), SIGUSR2);
    device->onDataArrival(device->getFd());
    EXPECT_EQ(numbers, (std::vector<int>{SIGUSR1, SIGUSR2}));
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(SignalDevice({-5}, nullptr).getFd(), -1);
}

using Texts = std::vector<std::string>;

TEST(DatagramDevice, ReportsEachDatagramWithItsSenderAndAnswers) {
    Texts received;
    DatagramDevice* device = nullptr;
    const auto answer = [&](const DatagramDevice::Datagram& datagram) {
        received.emplace_back(static_cast<const char*>(datagram.data), datagram.size);
        EXPECT_EQ(datagram.from.ip(), "127.0.0.1");
        EXPECT_TRUE(device->sendTo(datagram.data, datagram.size, datagram.from));
    };
    DatagramDevice server(answer);
    device = &server;
    // Of both families, and shared with another.
    ASSERT_TRUE(server.socket().setV6Only(false) && server.socket().setReuseAddress(true));
    ASSERT_TRUE(server.bind(0, "::"));
    Socket sharing(Socket::UDP);
    EXPECT_TRUE(sharing.setV6Only(true) && sharing.setReuseAddress(true) &&
                sharing.setHostIP("::1") && sharing.bind(server.socket().getHostPort()));
    Socket client(Socket::UDP);
    ASSERT_TRUE(client.connect("127.0.0.1", server.socket().getHostPort()));
    const std::string large(60000, 'x');
    for (const std::string& text : {std::string("one"), std::string(), large}) {
        client.send(text.data(), static_cast<int>(text.size()));
    }
    serve(server);
    EXPECT_EQ(received, (Texts{"one", "", large}));
    std::string answered(large.size(), '\0');
    for (const int size : {3, 0, 60000}) {
        EXPECT_EQ(client.recv(answered.data(), static_cast<int>(answered.size()), 10000), size);
    }
    EXPECT_FALSE(server.sendTo(answered.data(), 70000, SocketAddress()));
}

TEST(DatagramDevice, GetsWhatIsSentToItsGroupsOnly) {
    Texts received;
    DatagramDevice member([&](const DatagramDevice::Datagram& datagram) {
        received.emplace_back(static_cast<const char*>(datagram.data), datagram.size);
    });
    ASSERT_TRUE(member.bind(0));
    EXPECT_FALSE(member.socket().joinGroup("239.1.2.3", "nosuchif"));
    ASSERT_TRUE(member.socket().joinGroup("239.1.2.3", "lo"));
    Socket sender(Socket::UDP);
    ASSERT_TRUE(sender.setGroupInterface("lo") && sender.setGroupHops(0));
    SocketAddress group;
    ASSERT_TRUE(SocketAddress::parse("239.1.2.3", member.socket().getHostPort(), &group));
    if (sender.sendTo("in", 2, group) != 2) GTEST_SKIP() << "no multicast here";
    serve(member);
    EXPECT_TRUE(member.socket().leaveGroup("239.1.2.3", "lo"));
    EXPECT_EQ(received, Texts{"in"});
    sender.sendTo("out", 3, group);
    pollfd entry{member.getFd(), POLLIN, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 0);
}

TEST(InotifyDevice, TellsNamesEventsOverflowsAndTheEndOfAWatch) {
    testing::TemporaryFolder folder;
    InotifyDevice device;
    std::vector<InotifyDevice::Change> changes;
    device.setOnChange([&](const InotifyDevice::Change& change) { changes.push_back(change); });
    const std::string other = folder / "other";
    std::ofstream(other) << 1;
    const int watch = device.addWatch(folder / "", IN_CREATE);
    const int file = device.addWatch(other, IN_CLOSE_WRITE);
    ASSERT_TRUE(watch >= 0 && file >= 0);
    std::ofstream(folder / "new") << 1;
    std::ofstream(other) << 2;
    serve(device);
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].path + changes[0].name, folder / "new");
    EXPECT_EQ(changes[0].events, IN_CREATE);
    EXPECT_EQ(changes[1].path + "|" + changes[1].name, other + "|");
    EXPECT_TRUE(device.removeWatch(watch));
    EXPECT_FALSE(device.removeWatch(watch));
    serve(device);
    EXPECT_EQ(changes.back().events, IN_IGNORED);

    device.setOnChange([&](const InotifyDevice::Change& change) {
        EXPECT_TRUE(change.isOverflow());
        device.setOnChange(nullptr);
    });
    testing::RecordFeed feed(device.getFd());
    LogCapture capture;
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(feed.send(testing::bytesOf(inotify_event{-1, IN_Q_OVERFLOW, 0, 0})));
    }
    serve(device);
    EXPECT_EQ(capture.count("inotify has dropped changes"), 1);  // where no function tells
}

TEST(Descriptor, FromElsewhereIsServedAndGivenBack) {
    testing::Tcp4Transport tcp;
    Socket opened = tcp.listener();
    const int port = opened.getHostPort();
    Socket adopted = Socket::fromDescriptor(opened.release());
    EXPECT_FALSE(opened.isValid());
    ListenerDevice device(&adopted);
    Socket client(Socket::TCP);
    ASSERT_TRUE(client.connect("127.0.0.1", port));
    testing::RecordingExecutor executor;
    Worker worker(&device, nullptr);
    worker.attach(nullptr, &executor);
    std::string peer;
    executor.newConnection = [&](Worker*, int, void* data) {
        const int fd = Socket(static_cast<const Socket*>(data)).release();
        Socket accepted = Socket::fromDescriptor(fd);
        peer = accepted.getRemoteIP() + ":" + std::to_string(accepted.getRemotePort());
    };
    serve(device);
    EXPECT_EQ(peer, "127.0.0.1:" + std::to_string(client.getHostPort()));

    EXPECT_FALSE(UnixSocket::fromDescriptor(device.getFd()).isValid());
    EXPECT_EQ(errno, EAFNOSUPPORT);
    EXPECT_FALSE(Socket::fromDescriptor(STDIN_FILENO).isValid());
    testing::UnixTransport local;
    UnixSocket bound(UnixSocket::STREAM);
    ASSERT_TRUE(bound.bind(local.folder / "bound"));
    UnixSocket taken = UnixSocket::fromDescriptor(bound.release());
    UnixListenerDevice listening(&taken);
    EXPECT_TRUE(UnixSocket(UnixSocket::STREAM).connect(listening.getAddress()));
}

}  // namespace
}  // namespace vyn
