// SPDX-License-Identifier: Apache-2.0

#include <vyn/diagnoser.h>
#include <vyn/logging.h>

#include <algorithm>
#include <string>

#include "common/tick.h"

namespace vyn {

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

}  // namespace

Diagnoser::Diagnoser(int capacity)
    : mRecords(new Record[static_cast<size_t>(std::max(capacity, 1))]),
      mCapacity(std::max(capacity, 1)) {}

Diagnoser::~Diagnoser() = default;

void Diagnoser::record(bool awake) { record(awake, static_cast<uint64_t>(tick::nanoseconds())); }

void Diagnoser::record(bool awake, uint64_t time) {
    const int start = mStart.load(kRelaxed);
    const int count = mCount.load(kRelaxed);
    int index = start;
    if (count >= mCapacity) {
        mStart.store(start + 1 == mCapacity ? 0 : start + 1, kRelaxed);
    } else {
        index = start + count;
        if (index >= mCapacity) index -= mCapacity;
        mCount.store(count + 1, kRelaxed);
    }
    mRecords[static_cast<size_t>(index)].time.store(time, kRelaxed);
    mRecords[static_cast<size_t>(index)].awake.store(awake, kRelaxed);
}

int Diagnoser::busyPercent() const {
    const int count = mCount.load(kRelaxed);
    int64_t total = 0;
    int64_t busy = 0;
    for (int i = 1; i < count; ++i) {
        const Record& later = fromOldest(i, count);
        const auto span = static_cast<int64_t>(later.time.load(kRelaxed) -
                                               fromOldest(i - 1, count).time.load(kRelaxed));
        if (span < 0) continue;  // the loop overwrote the oldest mark meanwhile
        total += span;
        if (!later.awake.load(kRelaxed)) busy += span;
    }
    return total == 0 ? 0 : static_cast<int>(busy * 100 / total);
}

void Diagnoser::dump() const {
    const int count = mCount.load(kRelaxed);
    std::string marks;
    for (int i = 0; i < count; ++i) {
        marks += fromOldest(i, count).awake.load(kRelaxed) ? 'X' : '.';
        if (i % 10 == 9) marks += ' ';
    }
    VYN_LOG_DEBUG << marks;
}

const Diagnoser::Record& Diagnoser::fromOldest(int index, int count) const {
    return mRecords[static_cast<size_t>((mStart.load(kRelaxed) + index) % count)];
}

}  // namespace vyn
