// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vyn::netlink {

// Bytes that the kernel sent: messages of routing netlink, or the attributes of one. Not owned.
// None of its operations reaches beyond the bytes, whatever they say of their lengths.
struct Block {
    const char* data;
    size_t length;

    // What stands at the beginning, which need not be aligned; where there is less, 0 for the rest.
    template <typename Header>
    Header header() const {
        Header result{};
        std::memcpy(&result, data, std::min(length, sizeof result));
        return result;
    }
    Block first(size_t count) const { return {data, std::min(count, length)}; }
    Block without(size_t count) const {
        count = std::min(count, length);
        return {data + count, length - count};
    }
};

// Hands the records of a block, each with its header, to `use(header, record)`, until that returns
// false. They begin with a Header that names their whole length in the member `size`, and are
// aligned to four bytes. Returns false when one is shorter than its header, or reaches beyond the
// block: reading ends there.
template <typename Header, typename Size, typename Use>
bool forEachRecord(Block block, Size Header::*size, Use use) {
    while (block.length >= sizeof(Header)) {
        const Header header = block.header<Header>();
        const size_t length = header.*size;
        if (length < sizeof header || length > block.length) return false;
        if (!use(header, block.first(length))) return true;
        block = block.without((length + 3) & ~size_t{3});
    }
    return true;
}

}  // namespace vyn::netlink
