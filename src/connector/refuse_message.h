// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

namespace vyn {

class Device;

// What a parser does as its last act when a peer sends more than it may: afterwards the parser may
// be gone. The device may be null.
void refuseMessage(const char* kind, size_t longest, Device* device);

}  // namespace vyn
