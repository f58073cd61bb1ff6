// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

// The monotonic clock behind every tick of the library.
//
// The public ticks (helper::mtick) have 32 bits and wrap. Inside the library, queues are ordered
// by the same clock in 64 bits, which never wraps: the public tick is its low 32 bits.
namespace vyn::tick {

// Monotonic milliseconds, 64 bits. Any thread.
int64_t now();

// now(), or up to some ten milliseconds before: read several times as fast. Any thread.
int64_t roughly();

// Whether now() is `time` or later. Faster than now() while the time is far off. Any thread.
bool isReached(int64_t time);

// A delay counts in 32 bits, whatever the width of long: a longer one is taken for the longest.
int64_t delay(long delayMs);
// now() and that delay later.
int64_t after(long delayMs);

// Monotonic nanoseconds. Any thread; not replaced by setSource().
int64_t nanoseconds();

// nanoseconds() and now() with one look at the clock. Any thread.
struct Instant {
    int64_t nanoseconds;
    int64_t milliseconds;
};
Instant instant();

// The 32-bit tick that `milliseconds` is shown as, sign-extended to long.
inline long toTick(int64_t milliseconds) { return static_cast<int32_t>(milliseconds); }

// Replaces the clock behind now() and helper::mtick(), for tests; null restores the system's.
// A source must never go backwards. Any thread, but meant for before loops run.
using Source = int64_t (*)();
void setSource(Source source);

}  // namespace vyn::tick
