// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "connector/timer_wrapper.h"

namespace vyn {

// Has a vector's second item begin a line of the processor's cache, so that in a heap of width four
// the four items below each are one line.
template <typename Item>
class HeapAllocator {
  public:
    using value_type = Item;

    HeapAllocator() = default;
    template <typename Other>
    explicit HeapAllocator(const HeapAllocator<Other>&) {}

    Item* allocate(size_t count) {
        return static_cast<Item*>(operator new((kAhead + count) * sizeof(Item), kLine)) + kAhead;
    }
    void deallocate(Item* items, size_t) { operator delete(items - kAhead, kLine); }
    bool operator==(const HeapAllocator&) const { return true; }
    bool operator!=(const HeapAllocator&) const { return false; }

  private:
    static constexpr std::align_val_t kLine{64};
    static constexpr size_t kAhead = 3;
    static_assert((1 + kAhead) * sizeof(Item) == 64);
};

// A heap of timers, the one due first on top. Each timer knows its place, so that it can be moved
// and taken out in logarithmic time. Not locked; owns nothing.
//
// Every timer has up to four below it, and their times stand in the heap itself: moving one looks
// at half as many levels as with two, at one line of the processor's cache for each, and at no
// timer that stays where it is.
class TimerHeap {
  public:
    bool empty() const { return mTimers.empty(); }
    // The time at which the first timer is due. Not for an empty heap.
    int64_t nextExpire() const { return mTimers.front().expire; }

    struct Entry {
        int64_t expire;
        TimerWrapper* timer;
    };
    using Entries = std::vector<Entry, HeapAllocator<Entry>>;

    // Sees to the memory for one more. The push() that follows needs none.
    void makeRoom() {
        if (mTimers.size() == mTimers.capacity()) grow();
    }
    void push(TimerWrapper* timer);
    // These two ignore a timer that is not in the heap.
    void erase(TimerWrapper* timer);
    // Moves a timer whose expire() has changed to its new place.
    void update(TimerWrapper* timer);
    // Whether it is in the heap of its queue.
    static bool contains(const TimerWrapper* timer) {
        return timer->mHeapIndex != TimerWrapper::kNotInHeap;
    }
    // Calls `visit` with every timer that is due at `now`, in no order, in time proportional to
    // their number.
    template <typename Visit>
    void visitDue(int64_t now, const Visit& visit) const {
        visitDueFrom(0, now, visit);
    }
    // Takes all timers out, in no order. Needs no memory.
    Entries takeAll();

  private:
    static constexpr size_t kWidth = 4;

    // A timer is due only if the one above it is.
    template <typename Visit>
    void visitDueFrom(size_t index, int64_t now, const Visit& visit) const {
        if (index >= mTimers.size() || mTimers[index].expire > now) return;
        visit(mTimers[index].timer);
        const size_t first = index * kWidth + 1;
        for (size_t below = first; below < first + kWidth; ++below) visitDueFrom(below, now, visit);
    }
    void grow();
    void place(Entry entry, size_t index);
    void siftUp(Entry entry, size_t index);
    void siftDown(Entry entry, size_t index);
    size_t firstBelow(size_t index) const;

    Entries mTimers;
};

}  // namespace vyn
