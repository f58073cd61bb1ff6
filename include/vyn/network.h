// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include <vyn/export.h>
#include <vyn/socket_address.h>

// The network interfaces of this machine, as the kernel shows them at the time of the call. Any
// thread.
namespace vyn::helper {

// An address of an interface.
struct InterfaceAddress {
    // As Socket takes it: "192.0.2.7", "2001:db8::7", "fe80::7%eth0".
    std::string ip;
    // How many bits of it are the network's.
    int prefixLength = 0;
};

// A network interface.
struct NetworkDevice {
    std::string name;                    // such as "eth0"
    int index = 0;                       // the kernel's number of it
    bool up = false;                     // switched on, whether it has a link or not
    bool carrier = false;                // has a link: what is sent can leave
    bool loopback = false;               // leads back to this machine only
    std::string mac;                     // "02:00:5e:10:00:01"; empty for one that has none
    std::vector<InterfaceAddress> ipv4;  // in the kernel's order
    std::vector<InterfaceAddress> ipv6;  // in the kernel's order
};

// Every interface; none, and a log line, when the kernel does not tell.
[[nodiscard]] VYN_API std::vector<NetworkDevice> getNetworkDevices();
// Their names.
[[nodiscard]] VYN_API std::vector<std::string> getInterfaces();
// The interface's first IPv4 address, and its hardware address. Empty when it has none; empty, and
// a log line, when there is no such interface.
[[nodiscard]] VYN_API std::string getIpAddress(const std::string& interface);
[[nodiscard]] VYN_API std::string getMacAddress(const std::string& interface);

// The addresses of a name, or of a numeric address, with the port, in the order in which to try
// them. None, and a log line, when there are none. Asks servers, which can take many seconds: not
// on a loop's thread. A task of a ThreadPool asks, and its second function, on the loop's thread,
// calls ClientDevice::setAddress(), as examples/client does it.
[[nodiscard]] VYN_API std::vector<SocketAddress> resolve(const std::string& name, int port);

}  // namespace vyn::helper
