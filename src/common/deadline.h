// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/time.h>

#include <ctime>
#include <limits>

namespace vyn {

// The time `ms` milliseconds after `now`; before it when `ms` is negative. The nanoseconds always
// lie within one second, as pthread_cond_timedwait demands. Where time_t ends, so does the
// deadline.
inline timespec laterBy(const timespec& now, int ms) {
    constexpr long kSecond = 1000000000;
    // Below two seconds, which 32 bits hold.
    long nanoseconds = static_cast<long>(now.tv_nsec) + ms % 1000 * 1000000L;
    long seconds = ms / 1000 + nanoseconds / kSecond;
    nanoseconds %= kSecond;
    if (nanoseconds < 0) {
        nanoseconds += kSecond;
        --seconds;
    }
    timespec deadline{};
    deadline.tv_nsec = nanoseconds;
    if (__builtin_add_overflow(now.tv_sec, seconds, &deadline.tv_sec)) {
        deadline.tv_sec = std::numeric_limits<time_t>::max();
    }
    return deadline;
}

inline timespec deadlineAfter(const timeval& now, int ms) {
    timespec precise{};
    precise.tv_sec = now.tv_sec;
    precise.tv_nsec = static_cast<long>(now.tv_usec) * 1000;
    return laterBy(precise, ms);
}

}  // namespace vyn
