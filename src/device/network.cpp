// SPDX-License-Identifier: Apache-2.0

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <vyn/logging.h>
#include <vyn/network.h>
#include <vyn/socket_address.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "device/ipv4_addresses.h"

namespace vyn::helper {

namespace {

NetworkDevice& deviceOf(const ifaddrs& entry, std::vector<NetworkDevice>& devices) {
    const std::string name = entry.ifa_name;
    for (NetworkDevice& device : devices) {
        if (device.name == name) return device;
    }
    NetworkDevice& device = devices.emplace_back();
    device.name = name;
    device.index = static_cast<int>(if_nametoindex(name.c_str()));
    device.up = (entry.ifa_flags & IFF_UP) != 0;
    device.carrier = (entry.ifa_flags & IFF_RUNNING) != 0;
    device.loopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
    return device;
}

int countBits(const in6_addr& mask) {
    size_t bits = 0;
    for (unsigned char byte : mask.s6_addr) bits += std::bitset<8>(byte).count();
    return static_cast<int>(bits);
}

// A copy, because a sockaddr need not lie where one of its special forms may.
template <typename Address>
Address copyAs(const sockaddr* address) {
    Address copy{};
    std::memcpy(&copy, address, sizeof copy);
    return copy;
}

InterfaceAddress addressOf(const netlink::Ipv4Address& entry) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &entry.address, text, sizeof text);
    return {text, entry.prefixLength};
}

InterfaceAddress ipv6AddressOf(const ifaddrs& entry) {
    SocketAddress address;
    std::memcpy(address.raw(), entry.ifa_addr, sizeof(sockaddr_in6));
    const sockaddr* mask = entry.ifa_netmask;
    return {address.ip(), mask == nullptr ? 0 : countBits(copyAs<sockaddr_in6>(mask).sin6_addr)};
}

std::string macOf(const sockaddr* address) {
    const auto link = copyAs<sockaddr_ll>(address);
    const unsigned char* byte = link.sll_addr;
    const bool isNone = std::all_of(byte, byte + 6, [](unsigned char each) { return each == 0; });
    if (link.sll_halen != 6 || isNone) return "";
    char text[sizeof "00:00:00:00:00:00"];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", byte[0], byte[1], byte[2],
                  byte[3], byte[4], byte[5]);
    return text;
}

void addEntry(std::vector<NetworkDevice>& devices, const ifaddrs& entry) {
    const int family = entry.ifa_addr == nullptr ? AF_UNSPEC : entry.ifa_addr->sa_family;
    if (family == AF_INET) return;  // these bear labels, not the names of interfaces
    NetworkDevice& device = deviceOf(entry, devices);
    if (family == AF_INET6) device.ipv6.push_back(ipv6AddressOf(entry));
    if (family == AF_PACKET) device.mac = macOf(entry.ifa_addr);
}

void addIpv4(std::vector<NetworkDevice>& devices) {
    std::vector<netlink::Ipv4Address> addresses;
    if (!netlink::readIpv4Addresses(addresses)) {
        VYN_LOG_ERRNO_INFO << "asking for addresses fail. not every IPv4 address is known.";
    }
    for (const netlink::Ipv4Address& address : addresses) {
        for (NetworkDevice& device : devices) {
            if (device.index == address.interfaceIndex) device.ipv4.push_back(addressOf(address));
        }
    }
}

// The interface of this name, or an empty record and a log line.
NetworkDevice find(const std::string& interface) {
    for (NetworkDevice& device : getNetworkDevices()) {
        if (device.name == interface) return device;
    }
    VYN_LOG_INFO << "no network interface " << interface;
    return {};
}

}  // namespace

std::vector<NetworkDevice> getNetworkDevices() {
    std::vector<NetworkDevice> devices;
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        VYN_LOG_ERRNO_INFO << "getifaddrs fail. no network interface is known.";
        return devices;
    }
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        addEntry(devices, *entry);
    }
    freeifaddrs(first);
    addIpv4(devices);
    return devices;
}

std::vector<std::string> getInterfaces() {
    std::vector<std::string> names;
    for (const NetworkDevice& device : getNetworkDevices()) names.push_back(device.name);
    return names;
}

std::string getIpAddress(const std::string& interface) {
    const NetworkDevice device = find(interface);
    return device.ipv4.empty() ? "" : device.ipv4.front().ip;
}

std::string getMacAddress(const std::string& interface) { return find(interface).mac; }

}  // namespace vyn::helper
