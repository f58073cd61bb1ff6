// SPDX-License-Identifier: Apache-2.0

#include <netdb.h>
#include <vyn/logging.h>
#include <vyn/network.h>

#include <cerrno>
#include <cstring>

namespace vyn::helper {

std::vector<SocketAddress> resolve(const std::string& name, int port) {
    std::vector<SocketAddress> addresses;
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;  // each address once
    hints.ai_flags = AI_ADDRCONFIG | AI_NUMERICSERV;
    addrinfo* first = nullptr;
    const int error = getaddrinfo(name.c_str(), std::to_string(port).c_str(), &hints, &first);
    if (error != 0) {
        VYN_LOG_INFO << "no address of " << name << ": "
                     << (error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error));
        return addresses;
    }
    for (const addrinfo* each = first; each != nullptr; each = each->ai_next) {
        if (each->ai_addrlen > SocketAddress::kCapacity) continue;
        std::memcpy(addresses.emplace_back().raw(), each->ai_addr, each->ai_addrlen);
    }
    freeaddrinfo(first);
    return addresses;
}

}  // namespace vyn::helper
