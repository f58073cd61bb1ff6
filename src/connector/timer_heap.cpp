#include "connector/timer_heap.h"

namespace vyn {

void TimerHeap::push(TimerWrapper* timer) {
    mTimers.push_back(timer);
    siftUp(timer, mTimers.size() - 1);
}

void TimerHeap::erase(TimerWrapper* timer) {
    const size_t index = timer->mHeapIndex;
    TimerWrapper* last = mTimers.back();
    mTimers.pop_back();
    if (last == timer) return;
    place(last, index);
    update(last);
}

void TimerHeap::update(TimerWrapper* timer) {
    const size_t index = timer->mHeapIndex;
    siftUp(timer, index);
    if (timer->mHeapIndex == index) siftDown(timer, index);
}

void TimerHeap::collectDue(int64_t now, std::vector<TimerWrapper*>& due) const {
    auto addIfDue = [&](size_t index) {
        if (index < mTimers.size() && mTimers[index]->getLeftTime(now) < 1) {
            due.push_back(mTimers[index]);
        }
    };
    // A timer is due only if the one above it is.
    size_t next = due.size();
    addIfDue(0);
    for (; next < due.size(); ++next) {
        const size_t index = due[next]->mHeapIndex;
        addIfDue(2 * index + 1);
        addIfDue(2 * index + 2);
    }
}

void TimerHeap::place(TimerWrapper* timer, size_t index) {
    mTimers[index] = timer;
    timer->mHeapIndex = index;
}

void TimerHeap::siftUp(TimerWrapper* timer, size_t index) {
    while (index > 0) {
        const size_t parent = (index - 1) / 2;
        if (mTimers[parent]->expire() <= timer->expire()) break;
        place(mTimers[parent], index);
        index = parent;
    }
    place(timer, index);
}

void TimerHeap::siftDown(TimerWrapper* timer, size_t index) {
    for (;;) {
        size_t child = 2 * index + 1;
        if (child >= mTimers.size()) break;
        if (child + 1 < mTimers.size() && mTimers[child + 1]->expire() < mTimers[child]->expire()) {
            ++child;
        }
        if (timer->expire() <= mTimers[child]->expire()) break;
        place(mTimers[child], index);
        index = child;
    }
    place(timer, index);
}

}  // namespace vyn
