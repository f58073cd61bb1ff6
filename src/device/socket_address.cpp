// SPDX-License-Identifier: Apache-2.0

#include <arpa/inet.h>
#include <net/if.h>
#include <vyn/socket_address.h>

#include <cerrno>

namespace vyn {

namespace {

bool parseV4(const std::string& ip, int port, sockaddr_in* address) {
    address->sin_family = AF_INET;
    address->sin_port = htons(static_cast<uint16_t>(port));
    return ip.empty() || inet_pton(AF_INET, ip.c_str(), &address->sin_addr) == 1;
}

bool parseV6(const std::string& ip, int port, sockaddr_in6* address) {
    const size_t percent = ip.find('%');
    const std::string bare = ip.substr(0, percent);
    address->sin6_family = AF_INET6;
    address->sin6_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET6, bare.c_str(), &address->sin6_addr) != 1) return false;
    if (percent == std::string::npos) return true;
    address->sin6_scope_id = if_nametoindex(ip.c_str() + percent + 1);
    return address->sin6_scope_id != 0;
}

std::string interfaceSuffix(uint32_t index) {
    char name[IF_NAMESIZE];
    return index != 0 && if_indextoname(index, name) != nullptr ? "%" + std::string(name) : "";
}

}  // namespace

bool SocketAddress::parse(const std::string& ip, int port, SocketAddress* address) {
    SocketAddress parsed;
    const bool hasNul = ip.find('\0') != std::string::npos;
    const bool isV6 = ip.find(':') != std::string::npos;
    const bool isAddress =
        !hasNul && port >= 0 && port <= 65535 &&
        (isV6 ? parseV6(ip, port, &parsed.mStorage.v6) : parseV4(ip, port, &parsed.mStorage.v4));
    if (!isAddress) errno = EINVAL;
    if (isAddress && address != nullptr) *address = parsed;
    return isAddress;
}

std::string SocketAddress::ip() const {
    char text[INET6_ADDRSTRLEN] = "";
    if (family() == AF_INET) inet_ntop(AF_INET, &mStorage.v4.sin_addr, text, sizeof text);
    if (family() != AF_INET6) return text;
    // An IPv4 peer of an IPv6 socket. The raw form is what that socket sends to it by.
    if (IN6_IS_ADDR_V4MAPPED(&mStorage.v6.sin6_addr)) {
        return inet_ntop(AF_INET, mStorage.v6.sin6_addr.s6_addr + 12, text, sizeof text);
    }
    inet_ntop(AF_INET6, &mStorage.v6.sin6_addr, text, sizeof text);
    return text + interfaceSuffix(mStorage.v6.sin6_scope_id);
}

int SocketAddress::port() const {
    if (family() == AF_INET) return ntohs(mStorage.v4.sin_port);
    return family() == AF_INET6 ? ntohs(mStorage.v6.sin6_port) : 0;
}

socklen_t SocketAddress::length() const {
    return family() == AF_INET6 ? sizeof mStorage.v6 : sizeof mStorage.v4;
}

}  // namespace vyn
