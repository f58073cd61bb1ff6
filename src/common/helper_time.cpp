// SPDX-License-Identifier: Apache-2.0

#include <sys/time.h>
#include <vyn/helper.h>

#include "common/tick.h"

namespace vyn::helper {

long mtick() { return tick::toTick(tick::now()); }

long tickDifference(long later, long earlier) {
    // Unsigned subtraction wraps where signed subtraction would be undefined.
    return static_cast<int32_t>(static_cast<uint32_t>(later) - static_cast<uint32_t>(earlier));
}

int64_t ntick() { return tick::nanoseconds(); }

long abstime() {
    timeval time{};
    gettimeofday(&time, nullptr);
    return tick::toTick(static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_usec / 1000);
}

}  // namespace vyn::helper
