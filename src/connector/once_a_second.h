// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "common/tick.h"

namespace vyn {

// Keeps what goes wrong again and again from becoming a flood of lines. One thread.
class OnceASecond {
  public:
    // Whether the last time that this was true is a second ago.
    bool isDue() {
        const int64_t now = tick::nanoseconds();
        if (now < mNext) return false;
        mNext = now + 1000000000;
        return true;
    }

  private:
    int64_t mNext = INT64_MIN;
};

}  // namespace vyn
