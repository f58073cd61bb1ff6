// SPDX-License-Identifier: Apache-2.0

// The devices that read records of the kernel: what changed among files and networks.

#include <linux/rtnetlink.h>
#include <sys/inotify.h>
#include <vyn/inotify_device.h>
#include <vyn/rtmgr_device.h>

#include <cstring>

#include "device/inotify_records.h"
#include "device/netlink_records.h"
#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;
using Changes = std::vector<int>;

// A device with a worker and an executor that keeps what is reported.
template <typename DeviceType>
struct Watcher {
    Watcher() {
        worker->attach(nullptr, &executor);
        executor.fileChanged = [this](Worker*, const std::string& path, int change) {
            lastPath = path;
            changes.push_back(change);
        };
        executor.networkChanged = [this](Worker*) { changes.push_back(0); };
        executor.disconnected = [this](Worker*) { changes.push_back(-100); };
    }
    // Serves the descriptor until nothing is left, and takes what was reported meanwhile.
    Changes drain() {
        pollfd entry{device->getFd(), POLLIN, 0};
        while (poll(&entry, 1, 0) == 1) device->onDataArrival(entry.fd);
        return std::exchange(changes, {});
    }

    RecordingExecutor executor;
    std::unique_ptr<DeviceType> device = std::make_unique<DeviceType>();
    std::unique_ptr<Worker> worker = std::make_unique<Worker>(device.get(), nullptr);
    std::string lastPath;
    Changes changes;
};
using FileWatcher = Watcher<InotifyDevice>;
using RouteWatcher = Watcher<RtmgrDevice>;

struct KernelRecords : ::testing::Test {
    TemporaryFolder folder;
    LogCapture log;
    FatalCapture fatal;
};

TEST_F(KernelRecords, TellWhatHappensToTheFilesOfADirectory) {
    FileWatcher watcher;
    watcher.device->watch(folder.path());
    const std::string name = folder / std::string(255, 'n');
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(watcher.drain(), (Changes{256, -1}));  // opened, too
    EXPECT_EQ(watcher.lastPath, folder.path());
    EXPECT_EQ(write(fd, "x", 1), 1);
    close(fd);
    EXPECT_EQ(watcher.drain(), (Changes{2, -1}));
    watcher.device->watch("/no/such/place");
    EXPECT_EQ(log.count("[2] No such file or directory. ret < 0. watch path failed: /no/such/"), 1);
    unlink(name.c_str());
    std::filesystem::remove(folder.path());
    EXPECT_EQ(watcher.drain(), (Changes{512}));
    EXPECT_EQ(watcher.lastPath, "/no/such/place");
}

TEST_F(KernelRecords, MayEndTheirDeviceOrItsWorkerWhileSomeAreLeft) {
    for (const bool endsDevice : {true, false}) {
        FileWatcher watcher;
        watcher.device->watch(folder.path());
        watcher.executor.fileChanged = [&](Worker*, const std::string& path, int) {
            endsDevice ? watcher.device.reset() : void();
            watcher.worker.reset();
            watcher.lastPath += path;
        };
        folder.write("file", "");
        watcher.device->onDataArrival(watcher.device->getFd());
        EXPECT_EQ(watcher.lastPath, folder.path());
    }
}

std::string fileRecord(uint32_t mask, uint32_t nameLength, const std::string& name) {
    inotify_event event{};
    event.mask = mask;
    event.len = nameLength;
    return bytesOf(event) + name;
}

TEST_F(KernelRecords, WithoutANameArePassedOverAndReadingStopsAtOnesThatReachTooFar) {
    FileWatcher watcher;
    RecordFeed feed(watcher.device->getFd());
    log.clear();
    ASSERT_TRUE(feed.send(fileRecord(IN_Q_OVERFLOW, 0, "") + fileRecord(IN_IGNORED, 0, "") +
                          fileRecord(IN_CREATE | IN_DELETE, 4, "abcd") +
                          fileRecord(IN_MODIFY, 1, "x") + fileRecord(IN_CREATE, UINT32_MAX, "ab")));
    EXPECT_EQ(watcher.drain(), (Changes{256, 2}));
    EXPECT_EQ(log.texts().size(), 2u);
    EXPECT_EQ(log.count("inotify has dropped changes of files, more came than were read."), 1);
    ASSERT_TRUE(feed.send(std::string(15, 'x')));
    EXPECT_EQ(watcher.drain(), Changes{-100});
}

TEST_F(KernelRecords, CannotBeReadWithoutADescriptor) {
    const ExhaustedDescriptors none;
    RouteWatcher routes;
    EXPECT_EQ(FileWatcher().device->getFd(), -1);
    routes.device->onDataArrival(-1);
    EXPECT_EQ(routes.changes, Changes{});
    EXPECT_EQ(log.count("[24] Too many open files. mFd == -1. inotify init fail."), 1);
    EXPECT_EQ(log.count("[24] Too many open files. create socket(AF_NETLINK, "), 1);
}

std::string message(uint16_t type, const std::string& content, uint32_t claimedLength = 0) {
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_len = static_cast<uint32_t>(sizeof header + content.size());
    if (claimedLength != 0) header.nlmsg_len = claimedLength;
    return bytesOf(header) + content;
}

std::string attribute(uint16_t type, const std::string& value, uint16_t claimedLength = 0) {
    rtattr header{};
    header.rta_type = type;
    header.rta_len = static_cast<uint16_t>(sizeof header + value.size());
    if (claimedLength != 0) header.rta_len = claimedLength;
    return bytesOf(header) + value + std::string((4 - value.size() % 4) % 4, '\0');
}

TEST_F(KernelRecords, OfNetworksAreReadUpToWhatIsDamagedAndReportedOnceADatagram) {
    const std::string start(sizeof(ifinfomsg), '\0');
    const std::string link =
        message(RTM_NEWLINK,
                start + attribute(1, "other") + attribute(IFLA_IFNAME, std::string("eth0\0", 5)));
    const auto damagedName = [](uint16_t length) { return attribute(IFLA_IFNAME, "eth1", length); };
    struct {
        std::string datagram;
        size_t names;
        size_t lines;
    } const cases[] = {{link, 1, 0},
                       {message(NLMSG_DONE, "") + link, 0, 0},
                       {message(RTM_NEWADDR, "") + link, 1, 0},
                       {link + message(RTM_NEWLINK, start, 15), 1, 1},
                       {link + message(RTM_NEWLINK, start, UINT32_MAX), 1, 1},
                       {message(RTM_NEWLINK, start + damagedName(3)) + link, 1, 1},
                       {message(RTM_NEWLINK, start + damagedName(9)) + link, 1, 1},
                       {std::string(9000, '\xFF'), 0, 1}};
    RouteWatcher watcher;
    RecordFeed feed(watcher.device->getFd());
    for (const auto& each : cases) {
        SCOPED_TRACE(&each - cases);
        log.clear();
        EXPECT_EQ(netlink::interfaceNames(each.datagram.data(), each.datagram.size()),
                  Strings(each.names, "eth0"));
        EXPECT_EQ(log.texts().size(), each.lines);
        ASSERT_TRUE(feed.send(each.datagram));
        EXPECT_EQ(watcher.drain(), Changes{0});
    }
    watcher.device->onDataArrival(watcher.device->getFd() + 1);
    EXPECT_EQ(fatal.texts(), Strings{"Check failed. (fd == mSocket)"});
    EXPECT_EQ(watcher.changes, Changes{0});  // nothing there: receiving fails, and is reported
}

}  // namespace
}  // namespace vyn
