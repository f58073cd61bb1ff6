#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyn/unix_device.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/fatal_capture.h"
#include "support/log_capture.h"
#include "support/received_worker.h"
#include "support/temporary_folder.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::FatalCapture;
using testing::LogCapture;
using testing::TemporaryFolder;

std::string dumped(Device& device) {
    std::ostringstream os;
    device.dump(os);
    return os.str();
}

TEST(UnixListenerDevice, OpensItsFileToEveryone) {
    TemporaryFolder folder;
    LogCapture capture;
    const mode_t mask = umask(0077);
    UnixListenerDevice device(folder / "socket");
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat((folder / "socket").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0777u);
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"bind on " + folder / "socket",
                                                         "listen on " + folder / "socket"}));
    EXPECT_STREQ(device.getClassName(), "UnixListenerDevice");
    EXPECT_EQ(dumped(device), "addr=" + folder / "socket");
}

TEST(UnixListenerDevice, ListensOnAnAbstractName) {
    const std::string name = "@vyn-test-device-" + std::to_string(getpid());
    FatalCapture fatal;
    UnixListenerDevice device(name);
    EXPECT_TRUE(fatal.lines().empty());
    EXPECT_EQ(dumped(device), "addr=" + name);
    UnixSocket client(UnixSocket::STREAM);
    EXPECT_TRUE(client.connect(name));
}

TEST(UnixListenerDevice, FailingToBindOrToOpenTheFileIsFatal) {
    TemporaryFolder folder;
    const std::string path = folder / "missing/socket";
    FatalCapture fatal;
    UnixListenerDevice device(path);
    EXPECT_EQ(fatal.count("Check failed. (b == true) bind addr " + path + " failed."), 1);
    EXPECT_EQ(
        fatal.count("Check failed. (ret == 0) chmod addr " + path + " to 0777 failed. ret = -1"),
        1);
}

TEST(UnixListenerDevice, TwoOnOnePathIsFatal) {
    TemporaryFolder folder;
    UnixListenerDevice first(folder / "socket");
    FatalCapture fatal;
    UnixListenerDevice second(folder / "socket");
    EXPECT_EQ(fatal.count("Check failed. (b == true) bind addr " + folder / "socket"), 1);
    UnixSocket client(UnixSocket::STREAM);
    ASSERT_TRUE(client.connect(folder / "socket"));
    EXPECT_TRUE(testing::awaitReadable(first.getFd()));
}

TEST(UnixListenerDevice, LogsTheAcceptedDescriptorAndItsOwnAddress) {
    TemporaryFolder folder;
    UnixListenerDevice device(folder / "socket");
    LogCapture capture;
    device.onDataArrival(device.getFd());
    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{"\033[1;33;40mRun here! accepted fd -1 from " +
                                       folder / "socket"});
}

TEST(UnixDevice, DumpsThePeersAddress) {
    testing::Connection<testing::UnixTransport> connection;
    const std::string path = connection.listener.getLocalAddr();
    UnixDevice client(&connection.client);
    UnixDevice server(&connection.server);
    EXPECT_EQ(dumped(client), "addr=" + path);
    EXPECT_EQ(dumped(server), "addr=");
    std::ostringstream printed;
    std::ostringstream expected;
    printed << static_cast<Device*>(&client);
    expected << "UnixDevice(" << static_cast<const void*>(&client) << "): {fd=" << client.getFd()
             << ", addr=" << path << "}";
    EXPECT_EQ(printed.str(), expected.str());
}

TEST(UnixDevice, OverDatagramsCarriesOneARead) {
    TemporaryFolder folder;
    UnixSocket socket(UnixSocket::DGRAM);
    ASSERT_TRUE(socket.bind(folder / "socket"));
    UnixDevice device(&socket);
    testing::ReceivedWorker worker(&device);
    UnixSocket peer(UnixSocket::DGRAM);
    EXPECT_EQ(peer.sendTo("one", 3, folder / "socket"), 3);
    EXPECT_EQ(peer.sendTo("three", 5, folder / "socket"), 5);
    for (int i = 0; i < 2; ++i) device.onDataArrival(device.getFd());
    EXPECT_EQ(worker.chunks, (std::vector<std::string>{"one", "three"}));
}

}  // namespace
}  // namespace vyn
