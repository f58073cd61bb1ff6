// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstddef>

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
    void unlinkFirst() {
        mFirst.store(first()->next, std::memory_order_relaxed);
        --mSize;
    }
    size_t size() const { return mSize; }
    // Takes out those for which `matches` gives true. Returns them linked by `next`, in their
    // order.
    template <typename Predicate>
    Posted* extract(Predicate matches);

  private:
    std::atomic<Posted*> mFirst{nullptr};
    Posted* mLast = nullptr;
    size_t mSize = 0;
};

template <typename Predicate>
Posted* PostedList::extract(Predicate matches) {
    Posted* kept = nullptr;  // the last of them
    Posted* extracted = nullptr;
    Posted** end = &extracted;
    for (Posted* posted = first(); posted != nullptr;) {
        const bool isExtracted = matches(*posted);
        Posted* const next = posted->next;
        if (isExtracted) {
            --mSize;
            posted->next = nullptr;
            *end = posted;
            end = &posted->next;
            kept == nullptr ? mFirst.store(next, std::memory_order_relaxed)
                            : void(kept->next = next);
        } else {
            kept = posted;
        }
        posted = next;
    }
    mLast = kept;
    return extracted;
}

}  // namespace vyn
