#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <vyn/network.h>
#include <vyn/socket.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace vyn::helper {
namespace {

using testing::LogCapture;

std::map<std::string, int> kernelIndexes() {
    std::map<std::string, int> indexes;
    struct if_nameindex* all = if_nameindex();
    for (auto* entry = all; entry->if_index != 0; ++entry) {
        indexes[entry->if_name] = static_cast<int>(entry->if_index);
    }
    if_freenameindex(all);
    return indexes;
}

// The loopback interface, or an empty record.
NetworkDevice loopback() {
    for (const NetworkDevice& device : getNetworkDevices()) {
        if (device.loopback && device.up) return device;
    }
    return {};
}

TEST(Network, ListsTheKernelsInterfaces) {
    std::map<std::string, int> listed;
    for (const NetworkDevice& device : getNetworkDevices()) listed[device.name] = device.index;
    EXPECT_EQ(listed, kernelIndexes());
    const std::vector<std::string> names = getInterfaces();
    EXPECT_EQ(names.size(), listed.size());
    for (const std::string& name : names) EXPECT_EQ(listed.count(name), 1u) << name;
}

TEST(Network, KnowsTheLoopbacksAddresses) {
    const NetworkDevice device = loopback();
    if (device.ipv4.empty()) GTEST_SKIP() << "this host has no loopback";
    EXPECT_EQ(device.ipv4[0].ip, "127.0.0.1");
    EXPECT_EQ(device.ipv4[0].prefixLength, 8);
    EXPECT_EQ(getIpAddress(device.name), "127.0.0.1");
    EXPECT_EQ(getMacAddress(device.name), "");
    EXPECT_TRUE(device.carrier);
    if (!device.ipv6.empty()) {
        EXPECT_EQ(device.ipv6[0].ip, "::1");
        EXPECT_EQ(device.ipv6[0].prefixLength, 128);
    }
}

TEST(Network, EveryAddressCanBeBoundTo) {
    for (const NetworkDevice& device : getNetworkDevices()) {
        for (const InterfaceAddress& address : device.ipv4) {
            Socket socket(Socket::TCP);
            EXPECT_TRUE(socket.setHostIP(address.ip) && socket.bind(0)) << address.ip;
        }
    }
}

TEST(Network, ShowsTheKernelsHardwareAddresses) {
    int compared = 0;
    for (const NetworkDevice& device : getNetworkDevices()) {
        std::string expected;
        std::ifstream("/sys/class/net/" + device.name + "/address") >> expected;
        if (expected.size() != sizeof "00:00:00:00:00:00" - 1) continue;
        if (device.loopback) expected = "";
        EXPECT_EQ(device.mac, expected) << device.name;
        ++compared;
    }
    if (compared == 0) GTEST_SKIP() << "this host does not show its interfaces as files";
}

TEST(Network, ALabelOfAnAddressIsNoInterface) {
    std::vector<std::string> names;
    std::string ip;
    bool labelled = false;
    // A network namespace of its own, which goes with the thread.
    std::thread([&] {
        labelled = unshare(CLONE_NEWNET) == 0 &&
                   std::system("ip address add 10.9.8.7/24 dev lo label lohome 2>&1") == 0;
        names = getInterfaces();
        ip = getIpAddress("lo");
    }).join();
    if (!labelled) GTEST_SKIP() << "no network namespace, or no ip command";
    EXPECT_EQ(std::count(names.begin(), names.end(), "lohome"), 0);
    EXPECT_EQ(ip, "10.9.8.7");
}

TEST(Network, AnUnknownInterfaceIsEmptyAndOneLine) {
    for (const char* name : {"nosuchif", "", "lo:"}) {
        LogCapture capture;
        EXPECT_EQ(getIpAddress(name), "");
        EXPECT_EQ(capture.lines().size(), 1u);
        EXPECT_EQ(getMacAddress(name), "");
        EXPECT_EQ(capture.lines().size(), 2u);
    }
}

}  // namespace
}  // namespace vyn::helper
