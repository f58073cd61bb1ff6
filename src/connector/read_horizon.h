// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>

namespace vyn {

// Up to which time the loop has read what its peers sent. Whoever has been silent up to then was
// silent in fact: what came later may be waiting to be read, if the loop was kept from looking by a
// slow handler, or if the process was stopped.
class ReadHorizon {
  public:
    // A tick::now(); INT64_MIN while the loop has not looked at all.
    int64_t time() const { return mTime; }

    // A wait is over that had begun at `began`, and found nothing until `ended`.
    void onNothing(int64_t ended) { reach(ended); }
    // It found events, all there were. They count once they are handled.
    void onAll(int64_t began) { begin(began, 1); }
    // It found as many events as it takes, and epoll goes round: within `waits` such waits all that
    // was there at the first one is found.
    void onSome(int64_t began, int64_t waits) {
        if (mWaitsLeft == 0) begin(began, waits);
    }
    // The events of the last wait have been handled.
    void onHandled() {
        if (mWaitsLeft > 0 && --mWaitsLeft == 0) reach(mBegan);
    }

  private:
    void begin(int64_t began, int64_t waits) {
        mBegan = began;
        mWaitsLeft = waits;
    }
    void reach(int64_t time) {
        mTime = std::max(mTime, time);
        mWaitsLeft = 0;
    }

    int64_t mTime = INT64_MIN;
    int64_t mBegan = 0;
    int64_t mWaitsLeft = 0;
};

}  // namespace vyn
