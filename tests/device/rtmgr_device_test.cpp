#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <vyn/rtmgr_device.h>
#include <vyn/worker.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "device/netlink_records.h"
#include "support/descriptors.h"
#include "support/fatal_capture.h"
#include "support/log_capture.h"
#include "support/record_feed.h"
#include "support/recording_executor.h"

namespace vyn {
namespace {

using testing::FatalCapture;
using testing::LogCapture;
using testing::RecordFeed;

// A device with a worker and an executor that counts what is reported.
struct RouteWatcher {
    RouteWatcher() : worker(&device, nullptr) {
        worker.attach(nullptr, &executor);
        executor.networkChanged = [this](Worker*) { ++changes; };
        executor.disconnected = [this](Worker*) { ++disconnections; };
    }
    // Serves the descriptor until nothing is left. Returns how often it was ready.
    int drain() {
        pollfd entry{device.getFd(), POLLIN, 0};
        int readies = 0;
        for (; poll(&entry, 1, 0) == 1; ++readies) device.onDataArrival(device.getFd());
        return readies;
    }

    testing::RecordingExecutor executor;
    RtmgrDevice device;
    Worker worker;
    int changes = 0;
    int disconnections = 0;
};

// An interface request for the loopback device of the calling thread's network namespace.
bool configure(unsigned long request, ifreq settings) {
    std::strcpy(settings.ifr_name, "lo");
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool done = ioctl(fd, request, &settings) == 0;
    close(fd);
    return done;
}

bool setAddress(const char* ip) {
    ifreq settings{};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, ip, &address.sin_addr);
    std::memcpy(&settings.ifr_addr, &address, sizeof address);
    return configure(SIOCSIFADDR, settings);
}

bool setFlags(short flags) {
    ifreq settings{};
    settings.ifr_flags = flags;
    return configure(SIOCSIFFLAGS, settings);
}

// Returns why it could not be done.
std::string watchAddressesChange() {
    if (unshare(CLONE_NEWNET) != 0) return std::strerror(errno);
    RouteWatcher watcher;
    LogCapture capture;
    EXPECT_EQ(watcher.drain(), 0);
    for (const auto& change :
         {+[] { return setAddress("10.1.2.3"); }, +[] { return setFlags(IFF_UP | IFF_LOOPBACK); },
          +[] { return setAddress("10.1.2.4"); }, +[] { return setFlags(IFF_LOOPBACK); }}) {
        watcher.changes = 0;
        EXPECT_TRUE(change()) << std::strerror(errno);
        EXPECT_TRUE(testing::awaitReadable(watcher.device.getFd()));
        const int readies = watcher.drain();
        EXPECT_GE(readies, 1);
        EXPECT_EQ(watcher.changes, readies);
    }
    EXPECT_TRUE(capture.texts().empty());  // nothing that the kernel sends counts as damaged
    return "";
}

TEST(RtmgrDevice, ReportsRealChangesOfAddressesAndLinks) {
    std::string obstacle;
    // A namespace of its own, which goes with the thread.
    std::thread([&obstacle] { obstacle = watchAddressesChange(); }).join();
    if (!obstacle.empty()) GTEST_SKIP() << "no network namespace can be made here: " << obstacle;
}

std::string message(uint16_t type, const std::string& content, uint32_t claimedLength = 0) {
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_len = static_cast<uint32_t>(sizeof header + content.size());
    if (claimedLength != 0) header.nlmsg_len = claimedLength;
    return testing::bytesOf(header) + content;
}

std::string attribute(uint16_t type, const std::string& value, uint16_t claimedLength = 0) {
    rtattr header{};
    header.rta_type = type;
    header.rta_len = static_cast<uint16_t>(sizeof header + value.size());
    if (claimedLength != 0) header.rta_len = claimedLength;
    return testing::bytesOf(header) + value + std::string((4 - value.size() % 4) % 4, '\0');
}

const std::string kLink(sizeof(ifinfomsg), '\0');

TEST(RtmgrDevice, ReportsOnceForEachDatagramWhateverIsInIt) {
    RouteWatcher watcher;
    RecordFeed feed(watcher.device.getFd());
    const std::string link = message(RTM_NEWLINK, kLink + attribute(IFLA_IFNAME, "eth0"));
    const std::vector<std::string> datagrams = {link,
                                                link + link,
                                                message(60000, "unknown"),
                                                message(NLMSG_ERROR, kLink),
                                                std::string(1, 'x'),
                                                std::string(9000, '\xFF')};
    for (const std::string& datagram : datagrams) {
        watcher.changes = 0;
        ASSERT_TRUE(feed.send(datagram));
        EXPECT_EQ(watcher.drain(), 1);
        EXPECT_EQ(watcher.changes, 1);
    }
    watcher.device.onDataArrival(watcher.device.getFd());  // nothing there: receiving fails
    EXPECT_EQ(watcher.changes, 2);
    watcher.device.disconnect();
    EXPECT_EQ(watcher.disconnections, 0);
}

TEST(RtmgrDevice, ReadsTheInterfacesOfADatagramUpToWhatIsDamaged) {
    using Names = std::vector<std::string>;
    const std::string link =
        message(RTM_NEWLINK,
                kLink + attribute(1, "other") + attribute(IFLA_IFNAME, std::string("eth0\0", 5)));
    const auto read = [](const std::string& bytes) {
        return netlink::interfaceNames(bytes.data(), bytes.size());
    };
    LogCapture capture;
    EXPECT_EQ(read(link + link), (Names{"eth0", "eth0"}));
    EXPECT_EQ(read(link + message(NLMSG_DONE, "") + link), Names{"eth0"});
    EXPECT_EQ(read(message(RTM_NEWADDR, "") + link), Names{"eth0"});
    EXPECT_TRUE(capture.texts().empty());

    for (const uint32_t length : {15u, 33u, 0xFFFFFFFFu}) {
        capture.clear();
        EXPECT_EQ(read(link + message(RTM_NEWLINK, kLink, length)), Names{"eth0"});
        EXPECT_EQ(capture.texts().size(), 1u) << length;
    }
    for (const int length : {3, 9, 65535}) {
        capture.clear();
        const std::string damaged = attribute(IFLA_IFNAME, "eth1", static_cast<uint16_t>(length));
        EXPECT_EQ(read(message(RTM_NEWLINK, kLink + damaged) + link), Names{"eth0"});
        EXPECT_EQ(capture.texts().size(), 1u) << length;
    }
}

TEST(RtmgrDevice, DoesNothingWithoutASocket) {
    RouteWatcher().drain();  // shows the sanitizer its classes, see ExhaustedDescriptors
    std::unique_ptr<RouteWatcher> watcher;
    FatalCapture fatal;
    LogCapture capture;
    {
        testing::ExhaustedDescriptors none;
        watcher = std::make_unique<RouteWatcher>();
    }
    const std::vector<std::string> texts = capture.texts();
    ASSERT_EQ(texts.size(), 4u);  // the first two tell of the descriptors
    EXPECT_EQ(texts[2], "Check failed. (mSocket >= 0)");
    EXPECT_EQ(texts[3],
              "[24] Too many open files. create socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE) "
              "failed.");
    EXPECT_EQ(watcher->device.getFd(), -1);
    watcher->device.onDataArrival(-1);
    EXPECT_EQ(watcher->changes, 0);
}

TEST(RtmgrDevice, AnotherDescriptorIsFatalYetItsOwnIsRead) {
    RouteWatcher watcher;
    RecordFeed feed(watcher.device.getFd());
    ASSERT_TRUE(feed.send("x"));
    FatalCapture fatal;
    watcher.device.onDataArrival(watcher.device.getFd() + 1);
    EXPECT_EQ(fatal.count("Check failed. (fd == mSocket)"), 1);
    EXPECT_EQ(watcher.changes, 1);
    EXPECT_EQ(watcher.drain(), 0);
}

TEST(RtmgrDevice, OwnsACloseOnExecSocketAndWritesNothing) {
    const int before = testing::openDescriptors();
    {
        RtmgrDevice device;
        EXPECT_NE(fcntl(device.getFd(), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_STREQ(device.getClassName(), "RtmgrDevice");
        EXPECT_EQ(device.write("x", 1), 1);
    }
    EXPECT_EQ(testing::openDescriptors(), before);
}

}  // namespace
}  // namespace vyn
