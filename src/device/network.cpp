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

namespace vyn::helper {

namespace {

// One more address of an interface may come under a label such as "eth0:1".
std::string interfaceName(const ifaddrs& entry) {
    const std::string label = entry.ifa_name;
    return label.substr(0, label.find(':'));
}

NetworkDevice& deviceOf(const ifaddrs& entry, std::vector<NetworkDevice>& devices) {
    const std::string name = interfaceName(entry);
    for (NetworkDevice& device : devices) {
        if (device.name == name) return device;
    }
    NetworkDevice& device = devices.emplace_back();
    device.name = name;
    device.index = static_cast<int>(if_nametoindex(name.c_str()));
    device.up = (entry.ifa_flags & IFF_UP) != 0;
    device.loopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
    return device;
}

template <typename Mask>
int countBits(const Mask& mask) {
    unsigned char bytes[sizeof mask];
    std::memcpy(bytes, &mask, sizeof mask);
    size_t bits = 0;
    for (unsigned char byte : bytes) bits += std::bitset<8>(byte).count();
    return static_cast<int>(bits);
}

// A copy, because a sockaddr need not lie where one of its special forms may.
template <typename Address>
Address copyAs(const sockaddr* address) {
    Address copy{};
    std::memcpy(&copy, address, sizeof copy);
    return copy;
}

int prefixLength(const sockaddr* mask, int family) {
    if (mask == nullptr) return 0;
    if (family == AF_INET) return countBits(copyAs<sockaddr_in>(mask).sin_addr);
    return countBits(copyAs<sockaddr_in6>(mask).sin6_addr);
}

InterfaceAddress addressOf(const ifaddrs& entry) {
    const int family = entry.ifa_addr->sa_family;
    SocketAddress address;
    std::memcpy(address.raw(), entry.ifa_addr,
                family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
    return {address.ip(), prefixLength(entry.ifa_netmask, family)};
}

std::string macOf(const sockaddr* address) {
    const auto link = copyAs<sockaddr_ll>(address);
    const unsigned char* byte = link.sll_addr;
    if (link.sll_halen != 6) return "";
    char text[sizeof "00:00:00:00:00:00"];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", byte[0], byte[1], byte[2],
                  byte[3], byte[4], byte[5]);
    return text;
}

void addTo(NetworkDevice& device, const ifaddrs& entry) {
    if (entry.ifa_addr == nullptr) return;
    switch (entry.ifa_addr->sa_family) {
        case AF_INET:
            device.ipv4.push_back(addressOf(entry));
            break;
        case AF_INET6:
            device.ipv6.push_back(addressOf(entry));
            break;
        case AF_PACKET:
            device.mac = macOf(entry.ifa_addr);
            break;
        default:
            break;
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
        addTo(deviceOf(*entry, devices), *entry);
    }
    freeifaddrs(first);
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
