// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "connector/worker_entry.h"

namespace vyn {

// The entries of a connector's workers, by the workers' addresses. Not locked.
//
// Entries stay where they are while they are in use. What is not in use any more is kept for those
// to come, so that there is no more around an entry than its share of a block of them.
class WorkerTable {
  public:
    WorkerTable() : mBuckets(size_t{1} << kFirstBits) {}

    // The worker's entry, or null. Does not look at the worker itself.
    WorkerEntry* find(const Worker* worker) const;
    // Makes one for a worker that has none. std::bad_alloc leaves everything as it was.
    WorkerEntry& add(Worker* worker);
    void remove(WorkerEntry& entry);

    size_t size() const { return mSize; }
    // All entries, in no order, and among them such as are nobody's, which are not ready.
    const std::deque<WorkerEntry>& places() const { return mEntries; }

  private:
    static constexpr int kFirstBits = 4;

    size_t bucketOf(const Worker* worker) const;
    void doubleBuckets();

    std::deque<WorkerEntry> mEntries;
    WorkerEntry* mUnused = nullptr;  // a list by `nextInBucket`
    size_t mSize = 0;                // without those
    int mBits = kFirstBits;
    std::vector<WorkerEntry*> mBuckets;  // 1 << mBits lists by `nextInBucket`
};

}  // namespace vyn
