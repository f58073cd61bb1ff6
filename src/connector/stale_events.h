// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "connector/epoll.h"

namespace vyn {

// Finds out whether epoll goes on reporting a registration that has ended.
//
// One that ended while its event was waiting to be handled is reported once. It is reported for
// ever when its descriptor was closed before it was taken out of the epoll set, and a duplicate of
// the descriptor is open: in a forked child, for one.
class StaleEvents {
  public:
    void beginBatch() {
        if (mFirst != 0 && !mLasts) mSuspect = mFirst;
        mFirst = 0;
        mLasts = mHasOthers = false;
    }
    // An event of a registration that has ended; and any other one.
    void add(EpollToken token) {
        if (mFirst == 0) mFirst = token.pack();
        if (mSuspect == token.pack()) mLasts = true;
    }
    void addOther() { mHasOthers = true; }

    // Whether one of this batch's was in an earlier one, when it had ended already.
    bool last() const { return mLasts; }
    // Whether there was nothing else in the batch.
    bool areAll() const { return !mHasOthers; }

  private:
    uint64_t mSuspect = 0;  // packed tokens; 0 for none, as it is the wake pipe's
    uint64_t mFirst = 0;
    bool mLasts = false;
    bool mHasOthers = false;
};

}  // namespace vyn
