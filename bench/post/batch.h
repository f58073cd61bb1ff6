// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <mutex>
#include <vector>

#include "post/contest.h"

namespace post {

// The locked queue that users of a library without messages write: posting wakes the loop when the
// queue was empty, and the loop takes all that is there at once.
class Batch {
  public:
    // True when the loop is to be woken.
    bool add(const Item& item) {
        std::lock_guard<std::mutex> lock(mMutex);
        mItems.push_back(item);
        return mItems.size() == 1;
    }

    void deliver(Receiver& receiver) {
        mTaken.clear();
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mTaken.swap(mItems);
        }
        for (const Item& item : mTaken) receiver.receive(item);
    }

  private:
    std::mutex mMutex;
    std::vector<Item> mItems;
    std::vector<Item> mTaken;
};

}  // namespace post
