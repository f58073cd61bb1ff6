#include <gtest/gtest.h>
#include <vyn/net_device.h>

#include <sstream>
#include <string>

#include "support/fatal_capture.h"
#include "support/log_capture.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::FatalCapture;
using testing::LogCapture;

std::string hostPort(ListenerDevice& device) {
    return "127.0.0.1:" + std::to_string(device.socket().getHostPort());
}

TEST(ListenerDevice, ListensAndSaysWhere) {
    LogCapture capture;
    ListenerDevice device(0, "127.0.0.1");
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"listen on " + hostPort(device)});
    EXPECT_NE(capture.lines()[0].find("listener_device.cpp"), std::string::npos);
    EXPECT_STREQ(device.getClassName(), "ListenerDevice");
    std::ostringstream os;
    device.dump(os);
    EXPECT_EQ(os.str(), "[:0=>" + hostPort(device) + "]");
}

TEST(ListenerDevice, StaysUnboundWithANegativePort) {
    ListenerDevice device(-1, "127.0.0.1");
    EXPECT_EQ(device.getFd(), -1);
}

TEST(ListenerDevice, FailingToBindIsFatalWhenItIsMade) {
    ListenerDevice first(0, "127.0.0.1");
    const int port = first.socket().getHostPort();
    FatalCapture fatal;
    ListenerDevice second(port, "127.0.0.1");
    EXPECT_EQ(fatal.count("Check failed. (b == true) bind [" + hostPort(first) + "] failed."), 1);
    ListenerDevice nowhere(7, "not an address");
    EXPECT_EQ(fatal.count("Check failed. (b == true) bind [not an address:7] failed."), 1);
}

TEST(ListenerDevice, ListensAnewAndLogsSuccessAndFailure) {
    ListenerDevice taken(0, "127.0.0.1");
    ListenerDevice device;
    LogCapture capture;
    EXPECT_TRUE(device.listen(0, "127.0.0.1"));
    const std::string first = hostPort(device);
    EXPECT_TRUE(device.listen(0, "127.0.0.1"));
    EXPECT_FALSE(device.listen(taken.socket().getHostPort(), "127.0.0.1"));
    EXPECT_EQ(capture.texts()[0], "listen on " + first);
    ASSERT_EQ(capture.lines().size(), 3u);
    EXPECT_EQ(capture.texts()[2],
              "[98] Address already in use. bind [" + hostPort(taken) + "] failed.");
    EXPECT_TRUE(device.listen(0, "127.0.0.1"));
}

TEST(ListenerDevice, LogsTheAcceptedDescriptor) {
    ListenerDevice device(0, "127.0.0.1");
    LogCapture capture;
    device.onDataArrival(device.getFd());
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"\033[1;33;40mRun here! accepted = -1"});
}

}  // namespace
}  // namespace vyn
