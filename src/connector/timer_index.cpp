#include "connector/timer_index.h"

namespace vyn {

namespace {

constexpr size_t kFirstBuckets = 16;
constexpr int kFirstHashShift = 28;

}  // namespace

void TimerIndex::insert(TimerWrapper* timer) {
    if (mCount == mBuckets.size()) grow();
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

// Multiplicative hashing (Knuth, The Art of Computer Programming 3, 6.4): spreads ids that follow
// each other evenly.
size_t TimerIndex::bucketOf(int id) const {
    return static_cast<uint32_t>(id) * 2654435769U >> mHashShift;
}

void TimerIndex::link(TimerWrapper* timer) {
    TimerWrapper*& chain = mBuckets[bucketOf(timer->getId())];
    timer->mNextInBucket = chain;
    chain = timer;
}

void TimerIndex::grow() {
    const std::vector<TimerWrapper*> old = std::move(mBuckets);
    mHashShift = old.empty() ? kFirstHashShift : mHashShift - 1;
    mBuckets.assign(old.empty() ? kFirstBuckets : old.size() * 2, nullptr);
    for (TimerWrapper* chain : old) {
        while (chain != nullptr) {
            TimerWrapper* const timer = chain;
            chain = timer->mNextInBucket;
            link(timer);
        }
    }
}

}  // namespace vyn
