// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace vyn {

// Which turn of its loop a thread is in.
class LoopTurn {
  public:
    // 0 for a thread that is in none.
    static uint32_t number() { return tNumber; }
    // The loop's.
    static void begin() {
        if (++tNumber == 0) ++tNumber;
    }
    static void endLast() { tNumber = 0; }

  private:
    static inline thread_local uint32_t tNumber = 0;
};

}  // namespace vyn
