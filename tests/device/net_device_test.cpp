#include <gtest/gtest.h>
#include <sys/socket.h>
#include <vyn/config.h>
#include <vyn/net_device.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/received_worker.h"
#include "support/recording_executor.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::Connection;
using testing::ReceivedWorker;
using testing::Tcp4Transport;

std::string dumped(Device& device) {
    std::ostringstream os;
    device.dump(os);
    return os.str();
}

TEST(NetDevice, DumpsBothAddresses) {
    Connection<Tcp4Transport> connection;
    const std::string port = std::to_string(connection.listener.getHostPort());
    NetDevice device(&connection.client);
    const std::string local = std::to_string(device.socket().getHostPort());
    EXPECT_EQ(dumped(device), "[127.0.0.1:" + port + "=>127.0.0.1:" + local + "]");

    std::ostringstream printed;
    printed << static_cast<Device*>(&device);
    std::ostringstream expected;
    expected << "NetDevice(" << static_cast<const void*>(&device) << "): {fd=" << device.getFd()
             << ", " << dumped(device) << "}";
    EXPECT_EQ(printed.str(), expected.str());
}

TEST(NetDevice, StillShowsThePeerWhenItIsGone) {
    Connection<Tcp4Transport> connection;
    NetDevice device(&connection.server);
    const std::string before = dumped(device);
    const linger abortive{1, 0};
    setsockopt(connection.client.fd(), SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
    connection.client.reset();
    ASSERT_TRUE(testing::awaitReadable(device.getFd()));
    testing::LogCapture capture;
    device.onDataArrival(device.getFd());
    EXPECT_EQ(capture.count("[104] Connection reset by peer. read. ret:-1"), 1);
    EXPECT_EQ(dumped(device), before);
    device.disconnect();
    EXPECT_EQ(dumped(device).substr(0, before.find('=')), before.substr(0, before.find('=')));
}

TEST(NetDevice, OverUdpCarriesOneDatagramARead) {
    Socket peer(Socket::UDP);
    peer.setHostIP("127.0.0.1");
    ASSERT_TRUE(peer.bind(0));
    Socket socket(Socket::UDP);
    ASSERT_TRUE(socket.connect("127.0.0.1", peer.getHostPort()));
    SocketAddress address;
    ASSERT_TRUE(SocketAddress::parse("127.0.0.1", socket.getHostPort(), &address));

    NetDevice device(&socket);
    ReceivedWorker worker(&device);
    EXPECT_EQ(peer.sendTo("one", 3, address), 3);
    EXPECT_EQ(peer.sendTo("three", 5, address), 5);
    for (int i = 0; i < 2 && testing::awaitReadable(device.getFd()); ++i) {
        device.onDataArrival(device.getFd());
    }
    EXPECT_EQ(worker.chunks, (std::vector<std::string>{"one", "three"}));

    config::setAsyncWritting(true);
    device.onReady();
    config::setAsyncWritting(false);
    EXPECT_EQ(fcntl(device.getFd(), F_GETFL) & O_NONBLOCK, 0);  // only streams
    EXPECT_EQ(device.write("back", 4), 4);
    char buffer[8];
    EXPECT_EQ(peer.recv(buffer, sizeof buffer, 10000), 4);
}

}  // namespace
}  // namespace vyn
