// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "common/tick.h"

namespace vyn {

// What a worker notes as the time of a read or a write. To look at the clock takes a good part of
// what the read itself does; so while the loop hands out an event its own look, at the end of its
// wait, serves the first read, and then a clock that is read faster. That one is behind by some ten
// milliseconds at most. One for each thread.
class EventTick {
  public:
    // Until its end `look` serves, a tick::now() or INT64_MIN; `isFresh` if nothing has been called
    // since.
    class Scope {
      public:
        Scope(int64_t look, bool isFresh)
            : mOuter(std::exchange(tLook, look)), mOuterServes(std::exchange(tServes, true)) {
            tIsFresh = isFresh;
        }
        ~Scope() {
            tLook = mOuter;
            tServes = mOuterServes;
            tIsFresh = false;
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        int64_t mOuter;
        bool mOuterServes;
    };

    // Both as a tick::now().
    static int64_t ofRead() { return std::exchange(tIsFresh, false) ? tLook : ofWrite(); }
    static int64_t ofWrite() {
        if (!tServes) return tick::now();
        tLook = std::max(tLook, tick::roughly());
        return tLook;
    }

  private:
    static inline thread_local int64_t tLook = 0;
    static inline thread_local bool tServes = false;
    static inline thread_local bool tIsFresh = false;
};

}  // namespace vyn
