// SPDX-License-Identifier: Apache-2.0

#include "device/netlink_records.h"

#include <linux/rtnetlink.h>
#include <vyn/logging.h>

#include <cstring>

#include "device/netlink_block.h"

namespace vyn::netlink {

namespace {

using Names = std::vector<std::string>;

constexpr size_t kAttributesOffset = sizeof(nlmsghdr) + sizeof(ifinfomsg);
static_assert(kAttributesOffset == 32);

// The attributes of one message. False when they are damaged.
bool readAttributes(Block block, Names& names) {
    return forEachRecord(block, &rtattr::rta_len, [&names](const rtattr& attribute, Block record) {
        const Block value = record.without(sizeof attribute);
        if (attribute.rta_type == IFLA_IFNAME) {
            names.emplace_back(value.data, strnlen(value.data, value.length));
        }
        return true;
    });
}

bool readMessages(Block block, Names& names) {
    bool areSound = true;
    const auto readOne = [&](const nlmsghdr& message, Block record) {
        if (message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE) return false;
        areSound = readAttributes(record.without(kAttributesOffset), names) && areSound;
        return true;
    };
    return forEachRecord(block, &nlmsghdr::nlmsg_len, readOne) && areSound;
}

}  // namespace

std::vector<std::string> interfaceNames(const void* data, size_t length) {
    Names names;
    if (!readMessages({static_cast<const char*>(data), length}, names)) {
        VYN_LOG_ERROR << "damaged netlink message among the " << length
                      << " bytes read, its interface names are skipped.";
    }
    return names;
}

}  // namespace vyn::netlink
