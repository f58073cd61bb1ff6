// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <utility>

namespace vyn {

// What a worker notes as the time of a read or a write. To look at the clock takes a good part of
// what the read itself does; so while the loop hands out events its own look, at the end of its
// wait, serves the first read, and then a clock that is read faster. That one is behind by some ten
// milliseconds at most. One for each thread.
class EventTick {
    struct Look {
        int64_t time;
        bool serves;
        bool isFresh;
    };

  public:
    // Until its end `look` serves, a tick::now() or INT64_MIN; `isFresh` if nothing has been called
    // since.
    class Scope {
      public:
        Scope(int64_t look, bool isFresh)
            : mOuter(std::exchange(tLook, Look{look, true, isFresh})) {}
        ~Scope() {
            tLook = mOuter;
            endFreshness();
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        const Look mOuter;
    };

    // Both as a tick::now().
    static int64_t ofRead() { return std::exchange(tLook.isFresh, false) ? tLook.time : ofWrite(); }
    static int64_t ofWrite();
    // Something was called that may have taken its time.
    static void endFreshness() { tLook.isFresh = false; }

  private:
    static inline thread_local Look tLook = {};
};

}  // namespace vyn
