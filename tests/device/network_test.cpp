// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <vyn/network.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace vyn::helper {
namespace {

TEST(Network, ListsTheKernelsInterfacesWithTheirAddresses) {
    struct if_nameindex* all = if_nameindex();
    size_t count = 0;
    while (all[count].if_index != 0) ++count;
    if_freenameindex(all);
    const std::vector<NetworkDevice> devices = getNetworkDevices();
    EXPECT_EQ(devices.size(), count);
    const std::vector<std::string> names = getInterfaces();
    ASSERT_EQ(names.size(), count);
    for (size_t i = 0; i < count; ++i) {
        const NetworkDevice& device = devices[i];
        EXPECT_EQ(names[i], device.name);
        EXPECT_EQ(device.index, static_cast<int>(if_nametoindex(device.name.c_str())));
        std::string mac;
        std::ifstream("/sys/class/net/" + device.name + "/address") >> mac;
        if (device.loopback) mac = "";
        EXPECT_EQ(device.mac, mac.size() == 17 ? mac : "");
        if (!device.loopback || !device.up) continue;
        EXPECT_EQ(device.ipv4.at(0).ip, "127.0.0.1");
        EXPECT_EQ(device.ipv4[0].prefixLength, 8);
        EXPECT_TRUE(device.carrier);
        for (const auto& address : device.ipv6) EXPECT_EQ(address.prefixLength, 128);
    }
}

TEST(Network, ALabelOfAnAddressIsNoInterface) {
    std::vector<std::string> names;
    std::string ip;
    bool labelled = false;
    // A network namespace of its own, which goes with the thread.
    testing::LogCapture log;
    std::thread([&] {
        labelled = unshare(CLONE_NEWNET) == 0 &&
                   std::system("ip address add 10.9.8.7/24 dev lo label lohome 2>&1") == 0;
        names = getInterfaces();
        ip = getIpAddress("lo");
    }).join();
    if (!labelled) GTEST_SKIP() << "no network namespace, or no ip command";
    EXPECT_EQ(std::count(names.begin(), names.end(), "lohome"), 0);
    EXPECT_EQ(ip + getIpAddress("lohome") + getMacAddress("nosuchif"), "10.9.8.7");
    EXPECT_EQ(log.count("no network interface"), 2);
}

}  // namespace
}  // namespace vyn::helper
