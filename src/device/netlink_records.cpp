// SPDX-License-Identifier: Apache-2.0

#include "device/netlink_records.h"

#include <linux/rtnetlink.h>
#include <vyn/logging.h>

#include <algorithm>
#include <cstring>

namespace vyn::netlink {

namespace {

using Names = std::vector<std::string>;

constexpr size_t kHeaderSize = sizeof(nlmsghdr);
constexpr size_t kAttributesOffset = kHeaderSize + sizeof(ifinfomsg);
static_assert(kHeaderSize == 16 && kAttributesOffset == 32);

struct Block {
    const char* data;
    size_t length;

    // Nothing in a received block need be aligned.
    template <typename Header>
    Header header() const {
        Header result;
        std::memcpy(&result, data, sizeof result);
        return result;
    }
    Block first(size_t count) const { return {data, count}; }
    Block without(size_t count) const {
        count = std::min(count, length);
        return {data + count, length - count};
    }
};

size_t aligned(size_t size) { return (size + 3) & ~size_t{3}; }

// The attributes of one message. False when they are damaged.
bool readAttributes(Block block, Names& names) {
    while (block.length >= sizeof(rtattr)) {
        const auto attribute = block.header<rtattr>();
        if (attribute.rta_len < sizeof attribute || attribute.rta_len > block.length) return false;
        const Block value = block.first(attribute.rta_len).without(sizeof attribute);
        if (attribute.rta_type == IFLA_IFNAME) {
            names.emplace_back(value.data, strnlen(value.data, value.length));
        }
        block = block.without(aligned(attribute.rta_len));
    }
    return true;
}

bool readMessages(Block block, Names& names) {
    bool sound = true;
    while (block.length >= kHeaderSize) {
        const auto message = block.header<nlmsghdr>();
        if (message.nlmsg_len < kHeaderSize || message.nlmsg_len > block.length) return false;
        if (message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE) break;
        const Block content = block.first(message.nlmsg_len).without(kAttributesOffset);
        sound = readAttributes(content, names) && sound;
        block = block.without(aligned(message.nlmsg_len));
    }
    return sound;
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
