#include "connector/message_queue.h"

#include "common/tick.h"

namespace vyn {

void MessageQueue::post(Connector::Executor* target, const Message& message, long delayMs) {
    AutoLock lock(mLock);
    // The clock is read under the lock: what is posted later is due later.
    const Key key{tick::after(delayMs), mNextSequence++};
    Message copy = message;
    copy.target = target;
    copy.when = tick::toTick(key.due);
    if (delayMs == 0) {
        mImmediate.push_back({key, copy});
    } else {
        mDelayed.emplace(key, copy);
    }
    publishNextDue();
    mWakePipe.wake();
}

bool MessageQueue::takeDue(Message& out) {
    const int64_t now = tick::now();
    if (nextDue() > now) return false;

    AutoLock lock(mLock);
    if (immediateIsFirst()) {
        out = mImmediate.front().message;
        mImmediate.pop_front();
    } else {
        out = mDelayed.begin()->second;
        mDelayed.erase(mDelayed.begin());
    }
    publishNextDue();
    return true;
}

bool MessageQueue::immediateIsFirst() const {
    if (mDelayed.empty()) return true;
    return !mImmediate.empty() && mImmediate.front().key < mDelayed.begin()->first;
}

void MessageQueue::publishNextDue() {
    int64_t next = INT64_MAX;
    if (!mImmediate.empty()) next = mImmediate.front().key.due;
    if (!mDelayed.empty() && mDelayed.begin()->first.due < next) {
        next = mDelayed.begin()->first.due;
    }
    mNextDue.store(next, std::memory_order_release);
}

}  // namespace vyn
