// SPDX-License-Identifier: Apache-2.0

#include "connector/message_queue.h"

#include "common/tick.h"

// Posting and delivering; message_queue_removal.cpp withdraws.

namespace vyn {

namespace {

bool isCancelled(Posted& posted) { return posted.isFunction() && !posted.function().call; }

}  // namespace

void MessageQueue::post(Connector::Executor* target, const Message& message, long delayMs) {
    mPosted.expectPush();
    Posted::Ptr posted = Posted::make(message, delayMs > 0);
    posted->message().target = target;
    add(std::move(posted), 0, delayMs);
}

uint64_t MessageQueue::post(std::function<void()> function, long delayMs) {
    mPosted.expectPush();
    const uint64_t id = mLastId.fetch_add(1, std::memory_order_relaxed) + 1;
    add(Posted::make(Posted::Function{std::move(function), id}, delayMs > 0), id, delayMs);
    return id;
}

MessageQueue::Delivery MessageQueue::takeDue(int64_t now) {
    if (hasImmediate() || nextDelayed() <= now) {
        AutoBriefLock lock(mLock);
        Posted* const immediate = firstImmediate();
        if (isDelayedNext(immediate, now)) return deliver(takeDelayed());
        if (immediate != nullptr) return deliver(takeImmediate());
    }
    return {nullptr, EndDelivery{this}};
}

void MessageQueue::EndDelivery::operator()(Posted* delivered) const {
    Posted::Delete()(delivered);
    const uint32_t delivery = queue->mDelivery.load(std::memory_order_relaxed);
    queue->mDelivery.store(delivery + 1, std::memory_order_release);
}

size_t MessageQueue::waiting() {
    AutoBriefLock lock(mLock);
    // A loop that waits relies on nobody else doing this.
    if (mWakePipe.isOnLoopThread()) takeOver();
    return mTaken.size() + mDelayed.size();
}

void MessageQueue::add(Posted::Ptr posted, uint64_t id, long delayMs) {
    posted->setDue(tick::after(delayMs));
    if (delayMs == 0) {
        mPosted.push(posted.release());
        return;
    }
    if (id == 0) id = mLastId.fetch_add(1, std::memory_order_relaxed) + 1;
    const Key key{posted->due(), id, delayMs > 0};
    addDelayed(std::move(posted), key);
}

void MessageQueue::addDelayed(Posted::Ptr posted, const Key& key) {
    const WakePipe::Waking waking(mWakePipe);
    {
        AutoBriefLock lock(mLock);
        insert(std::move(posted), key);
    }
    mWakePipe.wake();
}

void MessageQueue::insert(Posted::Ptr posted, const Key& key) {
    const bool isFunction = posted->isFunction();
    if (isFunction) mFunctions.emplace(key.id, posted.get());
    try {
        mDelayed.emplace(key, std::move(posted));
    } catch (...) {
        if (isFunction) mFunctions.erase(key.id);
        throw;
    }
    publishNextDelayed();
}

// Returns false when there was nothing.
bool MessageQueue::takeOver() {
    Posted* const newest = mPosted.takeAll();
    if (newest == nullptr) return false;
    Posted* const oldest = mTaken.append(newest);
    if (mUnindexed == nullptr) mUnindexed = oldest;
    return true;
}

Posted* MessageQueue::firstImmediate() {
    if (mTaken.isEmpty()) takeOver();
    // Of cancelled functions, the places are left; behind the last of them more may wait.
    while (!mTaken.isEmpty() && isCancelled(*mTaken.first())) {
        Posted::Delete()(takeImmediate());
        if (mTaken.isEmpty()) takeOver();
    }
    Posted* const first = mTaken.first();
    if (first == nullptr) return nullptr;
    // Another thread may have looked at the clock later and come first.
    if (first->due() < mLastImmediate) first->setDue(mLastImmediate);
    mLastImmediate = first->due();
    return first;
}

// For equal ticks, a delay was posted before its tick, a negative one behind it.
bool MessageQueue::isDelayedNext(const Posted* immediate, int64_t now) const {
    if (mDelayed.empty()) return false;
    const Key& delayed = mDelayed.begin()->first;
    // What is due no later than one without a delay is due as well.
    if (immediate == nullptr) return delayed.due <= now;
    return delayed.due < immediate->due() || (delayed.due == immediate->due() && delayed.isEarly);
}

Posted* MessageQueue::takeImmediate() {
    Posted* const first = mTaken.first();
    mTaken.unlinkFirst();
    __builtin_prefetch(first->next);  // which may have come from another core
    if (first == mUnindexed) mUnindexed = first->next;
    return first;
}

Posted* MessageQueue::takeDelayed() {
    Posted* const first = mDelayed.begin()->second.release();
    mDelayed.erase(mDelayed.begin());
    publishNextDelayed();
    return first;
}

MessageQueue::Delivery MessageQueue::deliver(Posted* posted) {
    if (posted->isFunction()) {
        mDelivered = {posted->function().id, nullptr, 0};
        if (!mFunctions.empty()) mFunctions.erase(mDelivered.id);
    } else {
        const Message& message = posted->message();
        mDelivered = {0, message.callback == nullptr ? message.target : nullptr, message.what};
    }
    mDelivery.store(mDelivery.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return {posted, EndDelivery{this}};
}

void MessageQueue::publishNextDelayed() {
    const int64_t next = mDelayed.empty() ? INT64_MAX : mDelayed.begin()->first.due;
    mNextDelayed.store(next, std::memory_order_release);
}

}  // namespace vyn
