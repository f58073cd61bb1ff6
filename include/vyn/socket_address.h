// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <netinet/in.h>

#include <string>

#include <vyn/export.h>

namespace vyn {

// A numeric IPv4 or IPv6 address with a port, or none. A small value; copying it allocates nothing.
class VYN_API SocketAddress {
  public:
    SocketAddress() : mStorage{} {}

    // Reads "192.0.2.1", "2001:db8::1" or, for an address that is valid on one link only,
    // "fe80::1%eth0"; an empty text is any IPv4 address. Ports are 0 to 65535. False with errno
    // EINVAL, and `address` unchanged, for anything else. It may be null, to ask only.
    [[nodiscard]] static bool parse(const std::string& ip, int port, SocketAddress* address);

    // AF_INET, AF_INET6, or AF_UNSPEC for none.
    [[nodiscard]] int family() const { return mStorage.any.sa_family; }
    // The address in the form parse() reads; empty for none. That of an IPv4 peer of an IPv6 socket
    // is shown as IPv4, "192.0.2.1" instead of "::ffff:192.0.2.1".
    [[nodiscard]] std::string ip() const;
    // 0 for none.
    [[nodiscard]] int port() const;

    // The form of the system calls, which may write kCapacity bytes.
    static constexpr socklen_t kCapacity = sizeof(sockaddr_in6);
    [[nodiscard]] sockaddr* raw() { return &mStorage.any; }
    [[nodiscard]] const sockaddr* raw() const { return &mStorage.any; }
    [[nodiscard]] socklen_t length() const;

  private:
    union {
        sockaddr_in6 v6;
        sockaddr_in v4;
        sockaddr any;
    } mStorage;
};

}  // namespace vyn
