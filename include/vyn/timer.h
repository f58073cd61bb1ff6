// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/export.h>

namespace vyn {

// What Connector::addTimer() calls periodically, on the loop's thread. No lock is held meanwhile,
// but another thread that removes this timer waits until the call is over: a callback does not wait
// for such a thread.
//
// Belongs to the application, and must outlive its time in the connector, which ends with
// onTimerRemoved().
class VYN_API Timer {
  public:
    virtual ~Timer();

    // `arg` is what was given to addTimer(); `count` is 1 at the first call. Returns true to be
    // called again, one interval after this call ends; false to be removed.
    virtual bool onTimer(void* arg, int count) = 0;
    // The connector has dropped this timer. Called once for each addTimer(), on the thread that
    // removed it, or on the loop's, if the timer was being called and could not be waited for;
    // deleting the timer here is fine.
    virtual void onTimerRemoved();
};

}  // namespace vyn
