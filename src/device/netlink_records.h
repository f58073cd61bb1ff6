// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vyn::netlink {

// The names of the interfaces that the routing messages in a datagram are about, in their order.
// Reading ends at a message that reaches beyond the datagram, and at the kernel's end or error
// message; that of one message at an attribute that reaches beyond it. A datagram that is damaged
// gives one error line.
std::vector<std::string> interfaceNames(const void* data, size_t length);

}  // namespace vyn::netlink
