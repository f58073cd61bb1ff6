// Any bytes as a datagram of routing messages: what is read of them does not depend on what
// follows.

#include <vyn/logging.h>

#include <algorithm>
#include <string>
#include <vector>

#include "device/netlink_records.h"

namespace vyn {
namespace {

using Names = std::vector<std::string>;

constexpr size_t kSmallestAttribute = 4;

void checkNames(const Names& names, size_t size) {
    VYN_CHECK(names.size() <= size / kSmallestAttribute);
    for (const std::string& name : names) {
        VYN_CHECK(name.size() < size && name.find('\0') == std::string::npos) << name;
    }
}

// Copied, so that the place where the datagram ends is also where the memory does.
void checkCutAt(size_t end, const uint8_t* data, const Names& whole) {
    const std::vector<uint8_t> datagram(data, data + end);
    const Names names = netlink::interfaceNames(datagram.data(), end);
    VYN_CHECK(names.size() <= whole.size());
    VYN_CHECK(std::equal(names.begin(), names.end(), whole.begin()));
}

}  // namespace
}  // namespace vyn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> names = vyn::netlink::interfaceNames(data, size);
    vyn::checkNames(names, size);
    const size_t step = size / 16 + 1;
    for (size_t end = 0; end < size; end += step) vyn::checkCutAt(end, data, names);
    return 0;
}
