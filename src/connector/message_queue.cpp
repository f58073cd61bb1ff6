// SPDX-License-Identifier: Apache-2.0

#include "connector/message_queue.h"

#include <algorithm>

#include "common/tick.h"

namespace vyn {

namespace {

// Room for this many messages is kept for the next ones, that of a larger burst is given back.
constexpr size_t kMostKept = 1024;

}  // namespace

void MessageQueue::post(Connector::Executor* target, const Message& message, long delayMs) {
    Entry entry{{tick::after(delayMs), 0}, message};
    entry.message.target = target;

    AutoLock lock(mLock);
    entry.key.sequence = mNextSequence++;
    delayMs == 0 ? addImmediate(entry) : addDelayed(entry);
}

bool MessageQueue::takeDue(Message& out, int64_t now) {
    const Entry* const immediate = firstImmediate();
    const int64_t delayedDue = nextDelayed();
    if (immediate != nullptr && immediate->key.due < delayedDue) {
        takeImmediate(out);
        return true;
    }
    // What is due no later than a message without a delay is due as well.
    if (immediate == nullptr && delayedDue > now) return false;

    AutoLock lock(mLock);
    const auto delayed = mDelayed.begin();
    if (immediate != nullptr && immediate->key < delayed->first) {
        takeImmediate(out);
        return true;
    }
    out = delayed->second;
    mDelayed.erase(delayed);
    publishNextDelayed();
    return true;
}

bool MessageQueue::hasImmediate() const {
    return mNextTaken < mTaken.size() || mHasPosted.load(std::memory_order_acquire);
}

void MessageQueue::addImmediate(Entry& entry) {
    // Another thread may have looked at the clock later and come here first.
    mLastImmediate = entry.key.due = std::max(mLastImmediate, entry.key.due);
    entry.message.when = tick::toTick(entry.key.due);
    mPosted.push_back(entry);
    // The first one has woken the loop, which has not come for them yet.
    if (mPosted.size() > 1) return;
    mHasPosted.store(true, std::memory_order_release);
    mWakePipe.wake();
}

void MessageQueue::addDelayed(Entry& entry) {
    entry.message.when = tick::toTick(entry.key.due);
    mDelayed.emplace(entry.key, entry.message);
    publishNextDelayed();
    mWakePipe.wake();
}

const MessageQueue::Entry* MessageQueue::firstImmediate() {
    if (mNextTaken == mTaken.size() && mHasPosted.load(std::memory_order_acquire)) takeOver();
    return mNextTaken < mTaken.size() ? &mTaken[mNextTaken] : nullptr;
}

void MessageQueue::takeOver() {
    mTaken.clear();
    mNextTaken = 0;
    AutoLock lock(mLock);
    mTaken.swap(mPosted);
    mHasPosted.store(false, std::memory_order_relaxed);
}

void MessageQueue::takeImmediate(Message& out) {
    out = mTaken[mNextTaken++].message;
    if (mNextTaken < mTaken.size() || mTaken.capacity() <= kMostKept) return;
    std::vector<Entry>().swap(mTaken);
    mNextTaken = 0;
}

void MessageQueue::publishNextDelayed() {
    const int64_t next = mDelayed.empty() ? INT64_MAX : mDelayed.begin()->first.due;
    mNextDelayed.store(next, std::memory_order_release);
}

}  // namespace vyn
