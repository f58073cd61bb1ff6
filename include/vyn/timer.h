// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/export.h>

namespace vyn {

// What Connector::addTimer() calls periodically, on the loop's thread. Both callbacks run while the
// connector's timers are locked to other threads (a call of theirs to addTimer() and its like waits
// until the callback is over). So a callback never waits for such a thread, and timers of two
// connectors do not both use the timers of the other: they would wait for each other for ever.
//
// Belongs to the application, and must outlive its time in the connector, which ends with
// onTimerRemoved().
class VYN_API Timer {
  public:
    virtual ~Timer();

    // `arg` is what was given to addTimer(); `count` is 1 at the first call. Returns true to be
    // called again, one interval after this call ends; false to be removed.
    virtual bool onTimer(void* arg, int count) = 0;
    // The connector has dropped this timer. Called once for each addTimer(), on whatever thread
    // removed it; deleting the timer here is fine.
    virtual void onTimerRemoved();
};

}  // namespace vyn
