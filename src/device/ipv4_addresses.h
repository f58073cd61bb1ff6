// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <netinet/in.h>

#include <vector>

namespace vyn::netlink {

// An IPv4 address and the interface that has it.
struct Ipv4Address {
    int interfaceIndex;
    in_addr address;
    int prefixLength;
};

// Appends every IPv4 address of this machine, in the kernel's order. False, with errno, when the
// kernel does not tell.
//
// Not by getifaddrs(), which knows an IPv4 address by its label only: that may be any text.
[[nodiscard]] bool readIpv4Addresses(std::vector<Ipv4Address>& out);

}  // namespace vyn::netlink
