// SPDX-License-Identifier: Apache-2.0

// Any bytes as a datagram of routing messages.

#include <string>

#include "cuts.h"
#include "device/netlink_records.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kSmallestAttribute = 4;
    const std::vector<std::string> names = vyn::netlink::interfaceNames(data, size);
    VYN_CHECK(names.size() <= size / kSmallestAttribute);
    for (const std::string& name : names) {
        VYN_CHECK(name.size() < size && name.find('\0') == std::string::npos) << name;
    }
    checkCuts(vyn::netlink::interfaceNames, data, size);
    return 0;
}
