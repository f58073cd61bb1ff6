// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_heap.h"

#include <algorithm>
#include <utility>

namespace vyn {

void TimerHeap::push(TimerWrapper* timer) {
    const Entry entry{timer->expire(), timer};
    mTimers.push_back(entry);
    siftUp(entry, mTimers.size() - 1);
}

void TimerHeap::erase(TimerWrapper* timer) {
    const size_t index = timer->mHeapIndex;
    if (index == TimerWrapper::kNotInHeap) return;
    timer->mHeapIndex = TimerWrapper::kNotInHeap;
    const Entry last = mTimers.back();
    mTimers.pop_back();
    if (last.timer == timer) return;
    place(last, index);
    update(last.timer);
}

void TimerHeap::update(TimerWrapper* timer) {
    const size_t index = timer->mHeapIndex;
    if (index == TimerWrapper::kNotInHeap) return;
    const Entry entry{timer->expire(), timer};
    siftUp(entry, index);
    if (timer->mHeapIndex == index) siftDown(entry, index);
}

TimerHeap::Entries TimerHeap::takeAll() {
    for (const Entry& entry : mTimers) entry.timer->mHeapIndex = TimerWrapper::kNotInHeap;
    return std::exchange(mTimers, {});
}

void TimerHeap::grow() {
    constexpr size_t kFirst = 4;
    mTimers.reserve(std::max(kFirst, mTimers.size() * 2));
}

void TimerHeap::place(Entry entry, size_t index) {
    mTimers[index] = entry;
    entry.timer->mHeapIndex = static_cast<uint32_t>(index);
}

void TimerHeap::siftUp(Entry entry, size_t index) {
    while (index > 0) {
        const size_t above = (index - 1) / kWidth;
        if (mTimers[above].expire <= entry.expire) break;
        place(mTimers[above], index);
        index = above;
    }
    place(entry, index);
}

void TimerHeap::siftDown(Entry entry, size_t index) {
    while (index * kWidth + 1 < mTimers.size()) {
        const size_t below = firstBelow(index);
        if (entry.expire <= mTimers[below].expire) break;
        place(mTimers[below], index);
        index = below;
    }
    place(entry, index);
}

// Of the timers right below `index`, of which there are some, the one that is due first.
size_t TimerHeap::firstBelow(size_t index) const {
    const size_t begin = index * kWidth + 1;
    const size_t end = std::min(begin + kWidth, mTimers.size());
    size_t first = begin;
    for (size_t below = begin + 1; below < end; ++below) {
        if (mTimers[below].expire < mTimers[first].expire) first = below;
    }
    return first;
}

}  // namespace vyn
