// SPDX-License-Identifier: Apache-2.0

#include "device/ipv4_addresses.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "device/socket_io.h"

namespace vyn::netlink {

namespace {

// Asks for all addresses. The answer is ended by a message of its own.
bool request(int fd) {
    struct {
        nlmsghdr header;
        ifaddrmsg filter;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.filter.ifa_family = AF_INET;
    return io::send(fd, &request, sizeof request, nullptr, 0) == sizeof request;
}

// The record that begins so many bytes behind another. The kernel aligns them.
template <typename Record>
const Record* recordAt(const void* begin, size_t offset) {
    const void* const at = static_cast<const char*>(begin) + offset;
    return static_cast<const Record*>(at);
}

// Of a connection between two points, IFA_ADDRESS is the other one's.
Ipv4Address addressOf(const nlmsghdr* message) {
    const auto* content = recordAt<ifaddrmsg>(message, NLMSG_HDRLEN);
    Ipv4Address result{static_cast<int>(content->ifa_index), {}, content->ifa_prefixlen};
    bool isLocal = false;
    size_t offset = NLMSG_SPACE(sizeof *content);
    while (offset + sizeof(rtattr) <= message->nlmsg_len) {
        const auto* each = recordAt<rtattr>(message, offset);
        if (each->rta_len < sizeof *each || each->rta_len > message->nlmsg_len - offset) break;
        offset += RTA_ALIGN(each->rta_len);
        if (RTA_PAYLOAD(each) < sizeof(in_addr) || isLocal) continue;
        if (each->rta_type != IFA_LOCAL && each->rta_type != IFA_ADDRESS) continue;
        std::memcpy(&result.address, RTA_DATA(each), sizeof result.address);
        isLocal = each->rta_type == IFA_LOCAL;
    }
    return result;
}

enum class Answer { kGoesOn, kComplete, kFailed };

Answer readPart(int fd, std::vector<Ipv4Address>& out) {
    constexpr int kLongestWaitMs = 1000;  // the kernel answers at once, or never
    alignas(nlmsghdr) char buffer[16384];
    const int count =
        io::receiveWithin(fd, buffer, sizeof buffer, kLongestWaitMs, nullptr, nullptr);
    if (count < 1) return Answer::kFailed;
    const auto size = static_cast<size_t>(count);
    size_t offset = 0;
    while (offset + sizeof(nlmsghdr) <= size) {
        const auto* message = recordAt<nlmsghdr>(buffer, offset);
        if (message->nlmsg_len < sizeof *message || message->nlmsg_len > size - offset) break;
        offset += NLMSG_ALIGN(message->nlmsg_len);
        if (message->nlmsg_type == NLMSG_DONE) return Answer::kComplete;
        if (message->nlmsg_type == NLMSG_ERROR) {
            errno = -static_cast<const nlmsgerr*>(NLMSG_DATA(message))->error;
            return Answer::kFailed;
        }
        if (message->nlmsg_type == RTM_NEWADDR) out.push_back(addressOf(message));
    }
    return Answer::kGoesOn;
}

}  // namespace

bool readIpv4Addresses(std::vector<Ipv4Address>& out) {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    Answer answer = fd >= 0 && request(fd) ? Answer::kGoesOn : Answer::kFailed;
    while (answer == Answer::kGoesOn) answer = readPart(fd, out);
    io::closeDescriptor(fd);
    return answer == Answer::kComplete;
}

}  // namespace vyn::netlink
