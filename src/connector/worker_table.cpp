// SPDX-License-Identifier: Apache-2.0

#include "connector/worker_table.h"

#include <utility>

namespace vyn {

WorkerEntry* WorkerTable::find(const Worker* worker) const {
    WorkerEntry* entry = mBuckets[bucketOf(worker)];
    while (entry != nullptr && entry->worker != worker) entry = entry->nextInBucket;
    return entry;
}

WorkerEntry& WorkerTable::add(Worker* worker) {
    if (mSize == mBuckets.size()) doubleBuckets();
    if (mUnused == nullptr) mUnused = &mEntries.emplace_back();
    WorkerEntry& entry = *std::exchange(mUnused, mUnused->nextInBucket);
    entry.worker = worker;
    entry.nextInBucket = std::exchange(mBuckets[bucketOf(worker)], &entry);
    ++mSize;
    return entry;
}

void WorkerTable::remove(WorkerEntry& entry) {
    WorkerEntry** link = &mBuckets[bucketOf(entry.worker)];
    while (*link != &entry) link = &(*link)->nextInBucket;
    *link = entry.nextInBucket;
    entry = WorkerEntry();
    entry.nextInBucket = std::exchange(mUnused, &entry);
    --mSize;
}

// Multiplicative hashing: the upper bits of the product with the golden ratio depend on all bits of
// the address, the lower of which are much the same for all workers.
size_t WorkerTable::bucketOf(const Worker* worker) const {
    constexpr uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;
    return static_cast<size_t>(reinterpret_cast<uintptr_t>(worker) * kGoldenRatio >> (64 - mBits));
}

// There are never more places than buckets, so none of them is without a worker here.
void WorkerTable::doubleBuckets() {
    std::vector<WorkerEntry*> larger(mBuckets.size() * 2);
    mBuckets.swap(larger);
    ++mBits;
    for (WorkerEntry& entry : mEntries) {
        entry.nextInBucket = std::exchange(mBuckets[bucketOf(entry.worker)], &entry);
    }
}

}  // namespace vyn
