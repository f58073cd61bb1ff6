// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_index.h"

namespace vyn {

namespace {

constexpr size_t kFirstBuckets = 64;
// Ids that follow each other are neighbours in groups of this size, so that timers that are added
// or gone through in a row find their buckets in the processor's cache.
constexpr int kGroupBits = 5;
constexpr int kFirstHashShift = 26 + kGroupBits;

}  // namespace

void TimerIndex::makeRoom() {
    if (mCount == mBuckets.size()) grow();
}

void TimerIndex::insert(TimerWrapper* timer) {
    makeRoom();
    ++mCount;
    link(timer);
}

void TimerIndex::erase(TimerWrapper* timer) {
    TimerWrapper** chain = &mBuckets[bucketOf(timer->getId())];
    while (*chain != timer) chain = &(*chain)->mNextInBucket;
    *chain = timer->mNextInBucket;
    --mCount;
}

TimerWrapper* TimerIndex::oldest(int id) const {
    TimerWrapper* found = nullptr;
    TimerWrapper* timer = mCount == 0 ? nullptr : mBuckets[bucketOf(id)];
    for (; timer != nullptr; timer = timer->mNextInBucket) {
        if (timer->getId() != id) continue;
        if (found == nullptr || TimerWrapper::olderFirst(timer, found)) found = timer;
    }
    return found;
}

// Multiplicative hashing (Knuth, The Art of Computer Programming 3, 6.4) spreads the groups evenly.
size_t TimerIndex::bucketOf(int id) const {
    const uint32_t number = static_cast<uint32_t>(id);
    const size_t group = (number >> kGroupBits) * 2654435769U >> mHashShift;
    return group << kGroupBits | (number & ((1U << kGroupBits) - 1));
}

void TimerIndex::link(TimerWrapper* timer) {
    TimerWrapper*& chain = mBuckets[bucketOf(timer->getId())];
    timer->mNextInBucket = chain;
    chain = timer;
}

void TimerIndex::grow() {
    const bool isFirst = mBuckets.empty();
    std::vector<TimerWrapper*> old(isFirst ? kFirstBuckets : mBuckets.size() * 2);
    old.swap(mBuckets);
    mHashShift = isFirst ? kFirstHashShift : mHashShift - 1;
    for (TimerWrapper* chain : old) {
        while (chain != nullptr) {
            TimerWrapper* const timer = chain;
            chain = timer->mNextInBucket;
            link(timer);
        }
    }
}

}  // namespace vyn
