// SPDX-License-Identifier: Apache-2.0

#include "connector/event_tick.h"

#include <algorithm>

#include "common/tick.h"

namespace vyn {

// Not inlined: it is called for each read and each write, and brought into the processor's cache
// once for all of them.
[[gnu::noinline]] int64_t EventTick::ofWrite() {
    Look& look = tLook;
    if (!look.serves) return tick::now();
    look.time = std::max(look.time, tick::roughly());
    return look.time;
}

}  // namespace vyn
