// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include <vyn/export.h>

namespace vyn {

// How a loop is doing; see Connector::figures(). Counts run from the making of the connector, so
// whoever wants a rate subtracts two of them. Each is right by itself, but the loop goes on while
// they are read.
struct VYN_API LoopFigures {
    uint64_t turns = 0;     // of the loop
    uint64_t events = 0;    // descriptors that were ready, the loop's own for being woken included
    uint64_t messages = 0;  // that were delivered, and functions that were called
    uint64_t timers = 0;    // calls of timers, five a second for heartbeats included

    // By how many milliseconds a timer was called later than it was due, at most.
    int64_t longestLatenessMs = 0;
    // The same of all calls together: totalLatenessMs / timers is the mean.
    uint64_t totalLatenessMs = 0;

    // What waits at present, delayed messages and functions included; but on other threads than the
    // loop's none that the loop has not come to look at.
    size_t waitingMessages = 0;
    size_t waitingTimers = 0;  // all that there are
    size_t workers = 0;        // that are added
    int loading = 0;           // as getLoading()

    // Of the callbacks made while they are timed, see Connector::setCallbackLimit(): how many took
    // longer than the limit.
    uint64_t slowCallbacks = 0;
    // How long the longest of them took, in microseconds.
    int64_t longestCallbackUs = 0;
    // What that was, such as "onTimer of 3". Empty without any.
    std::string longestCallback;
};

// "LoopFigures: {turns: 7, events: 2, messages: 1, timers: 5, lateness: 3 ms of 5 ms, waiting: 0
// messages 2 timers, workers: 1, loading: 4, slow callbacks: 0, longest: 12 us onTimer of 3}"
// on one line: the longest lateness is 3 ms of 5 ms in all.
VYN_API std::ostream& operator<<(std::ostream& os, const LoopFigures& figures);

}  // namespace vyn
