// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>

#include "connector/posted.h"

namespace vyn {

// The entries that a loop has taken over, the oldest first. One thread at a time, but for
// isEmpty(), which any may ask.
class PostedList {
  public:
    bool isEmpty() const { return mFirst.load(std::memory_order_relaxed) == nullptr; }
    Posted* first() const { return mFirst.load(std::memory_order_relaxed); }

    // Adds entries that are linked by `next`, the newest first. Returns the oldest of them.
    Posted* append(Posted* newest);
    void unlinkFirst();

  private:
    std::atomic<Posted*> mFirst{nullptr};
    Posted* mLast = nullptr;
};

}  // namespace vyn
