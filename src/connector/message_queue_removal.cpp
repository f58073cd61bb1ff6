// SPDX-License-Identifier: Apache-2.0

#include <chrono>
#include <thread>
#include <utility>

#include "connector/message_queue.h"

// Withdrawing what was posted. Application code, as destructors of functions are, runs without the
// lock.

namespace vyn {

void MessageQueue::cancel(uint64_t id) {
    if (id == 0) return;  // which stands for a message below
    std::function<void()> cancelled;
    uint32_t delivery = 0;
    {
        AutoBriefLock lock(mLock);
        takeOverForLoop();
        cancelled = takeFunction(id);
        if (mDelivered.id == id) delivery = mDelivery.load(std::memory_order_acquire);
    }
    awaitEnd(delivery);
}

void MessageQueue::remove(const Connector::Executor* target, const int* what) {
    Posted* removed = nullptr;
    uint32_t delivery = 0;
    {
        AutoBriefLock lock(mLock);
        takeOverForLoop();
        removed = takeMessages([target, what](Posted& posted) {
            if (posted.isFunction() || posted.message().callback != nullptr) return false;
            return posted.message().target == target &&
                   (what == nullptr || posted.message().what == *what);
        });
        const bool isDelivered = mDelivered.target == target && target != nullptr;
        if (isDelivered && (what == nullptr || mDelivered.what == *what)) {
            delivery = mDelivery.load(std::memory_order_acquire);
        }
    }
    drop(removed);
    awaitEnd(delivery);
}

void MessageQueue::clear() {
    for (bool isEmpty = false; !isEmpty;) {
        Posted* all = nullptr;
        {
            AutoBriefLock lock(mLock);
            takeOver();
            all = takeAll();
        }
        isEmpty = all == nullptr;
        drop(all);
    }
}

// The loop is woken, which may have looked for what was posted while it was in neither list.
void MessageQueue::takeOverForLoop() {
    if (takeOver()) mWakePipe.wake();
}

// Leaves the place of one without a delay in the list.
std::function<void()> MessageQueue::takeFunction(uint64_t id) {
    indexFunctions();
    const auto found = mFunctions.find(id);
    if (found == mFunctions.end()) return nullptr;
    std::function<void()> function = std::exchange(found->second->function().call, nullptr);
    mDelayed.erase({found->second->due(), id, false});
    mFunctions.erase(found);
    publishNextDelayed();
    return function;
}

// Functions without a delay are found by their numbers from here on.
void MessageQueue::indexFunctions() {
    for (; mUnindexed != nullptr; mUnindexed = mUnindexed->next) {
        if (mUnindexed->isFunction()) mFunctions.emplace(mUnindexed->function().id, mUnindexed);
    }
}

// Returns them linked by `next`, in their order.
Posted* MessageQueue::takeMessages(const std::function<bool(Posted&)>& matches) {
    Posted* taken = mTaken.extract([this, &matches](Posted& posted) {
        const bool isTaken = matches(posted);
        if (isTaken && &posted == mUnindexed) mUnindexed = posted.next;
        return isTaken;
    });
    Posted** end = &taken;
    while (*end != nullptr) end = &(*end)->next;
    for (auto delayed = mDelayed.begin(); delayed != mDelayed.end();) {
        if (!matches(*delayed->second)) {
            ++delayed;
            continue;
        }
        *end = delayed->second.release();
        end = &(*end)->next;
        delayed = mDelayed.erase(delayed);
    }
    publishNextDelayed();
    return taken;
}

Posted* MessageQueue::takeAll() {
    mFunctions.clear();
    return takeMessages([](Posted&) { return true; });
}

void MessageQueue::drop(Posted* first) {
    while (first != nullptr) {
        const Posted::Ptr dropped(std::exchange(first, first->next));
        if (dropped->isFunction() || dropped->message().callback != nullptr) continue;
        if (mDropListener) mDropListener(dropped->message());
    }
}

// 0, or the number of a delivery that may be under way.
void MessageQueue::awaitEnd(uint32_t delivery) const {
    if (delivery % 2 == 0 || WakePipe::isOnAnyLoopThread()) return;
    while (mDelivery.load(std::memory_order_acquire) == delivery) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace vyn
