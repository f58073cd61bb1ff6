// SPDX-License-Identifier: Apache-2.0

#include "connector/message_queue.h"

#include <algorithm>

#include "common/tick.h"

namespace vyn {

namespace {

void stamp(Posted& posted) {
    if (!posted.isFunction()) posted.message().when = tick::toTick(posted.due());
}

}  // namespace

MessageQueue::~MessageQueue() {
    AutoBriefLock lock(mLock);
    takeOver();
    while (!mTaken.isEmpty()) takeImmediate();
}

void MessageQueue::post(Connector::Executor* target, const Message& message, long delayMs) {
    Posted::Ptr posted = Posted::make(message, delayMs > 0);
    posted->message().target = target;
    add(std::move(posted), delayMs);
}

Posted::Ptr MessageQueue::takeDue(int64_t now) {
    if (!hasImmediate() && nextDelayed() > now) return nullptr;
    AutoBriefLock lock(mLock);
    Posted* const immediate = firstImmediate();
    if (isDelayedNext(immediate, now)) return takeDelayed();
    return immediate == nullptr ? nullptr : takeImmediate();
}

void MessageQueue::add(Posted::Ptr posted, long delayMs) {
    posted->setDue(tick::after(delayMs));
    delayMs == 0 ? mPosted.push(posted.release()) : addDelayed(std::move(posted), delayMs > 0);
}

void MessageQueue::addDelayed(Posted::Ptr posted, bool isEarly) {
    const WakePipe::Waking waking(mWakePipe);
    {
        AutoBriefLock lock(mLock);
        const Key key{posted->due(), ++mLastId, isEarly};
        mDelayed.emplace(key, std::move(posted));
        publishNextDelayed();
    }
    mWakePipe.wake();
}

void MessageQueue::takeOver() {
    if (Posted* const newest = mPosted.takeAll()) mTaken.append(newest);
}

Posted* MessageQueue::firstImmediate() {
    if (mTaken.isEmpty()) takeOver();
    Posted* const first = mTaken.first();
    if (first == nullptr) return nullptr;
    // Another thread may have looked at the clock later and come first.
    mLastImmediate = std::max(mLastImmediate, first->due());
    first->setDue(mLastImmediate);
    return first;
}

// For equal ticks, a delay was posted before its tick, a negative one behind it.
bool MessageQueue::isDelayedNext(const Posted* immediate, int64_t now) const {
    if (mDelayed.empty()) return false;
    const Key& delayed = mDelayed.begin()->first;
    // What is due no later than a message without a delay is due as well.
    if (immediate == nullptr) return delayed.due <= now;
    return delayed.due < immediate->due() || (delayed.due == immediate->due() && delayed.isEarly);
}

Posted::Ptr MessageQueue::takeImmediate() {
    Posted* const first = mTaken.first();
    mTaken.unlinkFirst();
    __builtin_prefetch(first->next);  // which may have come from another core
    stamp(*first);
    return Posted::Ptr(first);
}

Posted::Ptr MessageQueue::takeDelayed() {
    Posted::Ptr first = std::move(mDelayed.begin()->second);
    mDelayed.erase(mDelayed.begin());
    publishNextDelayed();
    stamp(*first);
    return first;
}

void MessageQueue::publishNextDelayed() {
    const int64_t next = mDelayed.empty() ? INT64_MAX : mDelayed.begin()->first.due;
    mNextDelayed.store(next, std::memory_order_release);
}

}  // namespace vyn
