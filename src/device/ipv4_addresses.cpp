// SPDX-License-Identifier: Apache-2.0

#include "device/ipv4_addresses.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>

#include "device/netlink_block.h"
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

// Of a connection between two points, IFA_ADDRESS is the other one's.
Ipv4Address addressOf(Block message) {
    const Block content = message.without(NLMSG_HDRLEN);
    const auto about = content.header<ifaddrmsg>();
    Ipv4Address result{static_cast<int>(about.ifa_index), {}, about.ifa_prefixlen};
    bool isLocal = false;
    forEachRecord(content.without(sizeof about), &rtattr::rta_len,
                  [&](const rtattr& attribute, Block record) {
                      const Block value = record.without(sizeof attribute);
                      const bool isOne = attribute.rta_type == IFA_LOCAL ||
                                         (attribute.rta_type == IFA_ADDRESS && !isLocal);
                      if (!isOne || value.length < sizeof(in_addr)) return true;
                      result.address = value.header<in_addr>();
                      isLocal = attribute.rta_type == IFA_LOCAL;
                      return true;
                  });
    return result;
}

enum class Answer { kGoesOn, kComplete, kFailed };

Answer readPart(int fd, std::vector<Ipv4Address>& out) {
    constexpr int kLongestWaitMs = 1000;  // the kernel answers at once, or never
    char buffer[16384];
    const int count =
        io::receiveWithin(fd, buffer, sizeof buffer, kLongestWaitMs, nullptr, nullptr);
    if (count < 1) return Answer::kFailed;
    Answer answer = Answer::kGoesOn;
    const auto readOne = [&](const nlmsghdr& message, Block record) {
        if (message.nlmsg_type == NLMSG_DONE) answer = Answer::kComplete;
        if (message.nlmsg_type == NLMSG_ERROR) {
            errno = -record.without(NLMSG_HDRLEN).header<nlmsgerr>().error;
            answer = Answer::kFailed;
        }
        if (message.nlmsg_type == RTM_NEWADDR) out.push_back(addressOf(record));
        return answer == Answer::kGoesOn;
    };
    forEachRecord(Block{buffer, static_cast<size_t>(count)}, &nlmsghdr::nlmsg_len, readOne);
    return answer;
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
