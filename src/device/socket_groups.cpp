// SPDX-License-Identifier: Apache-2.0

#include <net/if.h>
#include <netinet/in.h>
#include <vyn/socket.h>

#include <cerrno>
#include <cstring>

#include "device/socket_io.h"

// Who may share an address, and who gets what is sent to many.

namespace vyn {

namespace {

// 0 for an empty name, which leaves the choice to the kernel; -1, with errno, for an unknown one.
int indexOf(const std::string& interface) {
    if (interface.empty()) return 0;
    const unsigned index = if_nametoindex(interface.c_str());
    return index == 0 ? -1 : static_cast<int>(index);
}

}  // namespace

bool Socket::setReuseAddress(bool on) { return io::setOption(fd(), SOL_SOCKET, SO_REUSEADDR, on); }

bool Socket::setV6Only(bool on) {
    return openFor(AF_INET6) && io::setOption(fd(), IPPROTO_IPV6, IPV6_V6ONLY, on);
}

bool Socket::setBroadcast(bool on) { return io::setOption(fd(), SOL_SOCKET, SO_BROADCAST, on); }

bool Socket::joinGroup(const std::string& group, const std::string& interface) {
    return changeGroup(MCAST_JOIN_GROUP, group, interface);
}

bool Socket::leaveGroup(const std::string& group, const std::string& interface) {
    return changeGroup(MCAST_LEAVE_GROUP, group, interface);
}

bool Socket::setGroupInterface(const std::string& interface) {
    const int index = indexOf(interface);
    if (index < 0) return false;
    if (isV6()) return io::setOption(fd(), IPPROTO_IPV6, IPV6_MULTICAST_IF, index);
    ip_mreqn request{};
    request.imr_ifindex = index;
    return setsockopt(fd(), IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request) == 0;
}

bool Socket::setGroupHops(int hops) {
    if (isV6()) return io::setOption(fd(), IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hops);
    return io::setOption(fd(), IPPROTO_IP, IP_MULTICAST_TTL, hops);
}

bool Socket::setGroupLoop(bool on) {
    if (isV6()) return io::setOption(fd(), IPPROTO_IPV6, IPV6_MULTICAST_LOOP, on);
    return io::setOption(fd(), IPPROTO_IP, IP_MULTICAST_LOOP, on);
}

bool Socket::isV6() const { return io::getOption(fd(), SOL_SOCKET, SO_DOMAIN) == AF_INET6; }

// The group's family decides which option it is, and the kernel whether that fits the socket.
bool Socket::changeGroup(int name, const std::string& group, const std::string& interface) {
    SocketAddress address;
    const int index = indexOf(interface);
    if (index < 0 || !SocketAddress::parse(group, 0, &address)) return false;
    group_req request{};
    request.gr_interface = static_cast<uint32_t>(index);
    std::memcpy(&request.gr_group, address.raw(), address.length());
    const int level = address.family() == AF_INET6 ? IPPROTO_IPV6 : IPPROTO_IP;
    return setsockopt(fd(), level, name, &request, sizeof request) == 0;
}

}  // namespace vyn
