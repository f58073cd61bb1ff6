// SPDX-License-Identifier: Apache-2.0

#include <vyn/loop_figures.h>

namespace vyn {

std::ostream& operator<<(std::ostream& os, const LoopFigures& figures) {
    os << "LoopFigures: {turns: " << figures.turns << ", events: " << figures.events
       << ", messages: " << figures.messages << ", timers: " << figures.timers
       << ", lateness: " << figures.longestLatenessMs << " ms of " << figures.totalLatenessMs
       << " ms, waiting: " << figures.waitingMessages << " messages " << figures.waitingTimers
       << " timers, workers: " << figures.workers << ", loading: " << figures.loading
       << ", slow callbacks: " << figures.slowCallbacks;
    if (!figures.longestCallback.empty()) {
        os << ", longest: " << figures.longestCallbackUs << " us " << figures.longestCallback;
    }
    return os << "}";
}

}  // namespace vyn
