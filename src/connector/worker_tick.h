// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/helper.h>

#include <cstdint>

#include "common/tick.h"

namespace vyn {

// helper::mtick() in the 32 bits that it has.
inline int32_t tick32() { return static_cast<int32_t>(helper::mtick()); }
// The same where some milliseconds do not matter.
inline int32_t roughTick32() { return static_cast<int32_t>(tick::roughly()); }

}  // namespace vyn
