// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "common/tick.h"

namespace vyn {

// What a worker notes as the time of a read. The loop looks at the clock when its wait ends; as
// long as nothing has been called since, that look serves the read that follows, too. One for each
// thread.
class ReadStamp {
  public:
    // Serves the next take(), or that of the first command, until it is forgotten.
    static void keep(int32_t tick) { tTick = tick; }
    static void forget() { tTick = kNone; }
    // A 32-bit tick: the one that is kept, or the present one.
    static int32_t take() {
        const int64_t kept = tTick;
        tTick = kNone;
        return static_cast<int32_t>(kept == kNone ? tick::now() : kept);
    }

  private:
    static constexpr int64_t kNone = INT64_MIN;
    static inline thread_local int64_t tTick = kNone;
};

}  // namespace vyn
