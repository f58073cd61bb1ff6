// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/lock.h>
#include <vyn/message.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

#include "connector/brief_lock.h"
#include "connector/posted.h"
#include "connector/posted_list.h"
#include "connector/posted_stack.h"
#include "connector/wake_pipe.h"

namespace vyn {

// A connector's messages, in the order of their ticks and, for equal ticks, of posting.
//
// Messages without a delay, which are nearly all, come in that order by themselves: they are pushed
// without a lock, and the loop takes over all that there are when it has delivered those that it
// took before. Only the others are put in order, and compared with them in every turn. Any thread
// may post; the rest is the loop's.
class MessageQueue {
  public:
    // `wakePipe` is woken for what is posted; not owned.
    explicit MessageQueue(WakePipe& wakePipe) : mWakePipe(wakePipe) {}
    // Drops what waits.
    ~MessageQueue();
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    // Does nothing but throw when there is no memory.
    void post(Connector::Executor* target, const Message& message, long delayMs);

    // Takes the first message if it is due at `now`, a tick::now(). Returns null when there is
    // none.
    [[nodiscard]] Posted::Ptr takeDue(int64_t now);

    // Whether there is a message that was posted without a delay, and is therefore due.
    bool hasImmediate() const { return !mTaken.isEmpty() || !mPosted.isEmpty(); }
    // Has the loop woken for what is posted without a delay from here on. Returns false when
    // hasImmediate().
    [[nodiscard]] bool beginWait() { return mTaken.isEmpty() && mPosted.beginWait(); }
    // The tick::now() at which the first delayed message is due; INT64_MAX without one.
    int64_t nextDelayed() const { return mNextDelayed.load(std::memory_order_acquire); }

  private:
    // Unique, and ordered as the messages are to be delivered.
    struct Key {
        int64_t due;
        uint64_t id;
        bool isEarly;  // posted before it is due
        bool operator<(const Key& other) const {
            return due != other.due ? due < other.due : id < other.id;
        }
    };

    void add(Posted::Ptr posted, long delayMs);
    void addDelayed(Posted::Ptr posted, bool isEarly);
    void takeOver() VYN_REQUIRES(mLock);
    Posted* firstImmediate() VYN_REQUIRES(mLock);
    bool isDelayedNext(const Posted* immediate, int64_t now) const VYN_REQUIRES(mLock);
    Posted::Ptr takeImmediate() VYN_REQUIRES(mLock);
    Posted::Ptr takeDelayed() VYN_REQUIRES(mLock);
    void publishNextDelayed() VYN_REQUIRES(mLock);

    WakePipe& mWakePipe;
    PostedStack mPosted{mWakePipe};
    // Spares the loop the lock when there is nothing to look at.
    std::atomic<int64_t> mNextDelayed{INT64_MAX};

    // Taken by the loop for each message, and by others for what they seldom do: these do not
    // include posting without a delay.
    BriefLock mLock;
    uint64_t mLastId VYN_GUARDED_BY(mLock) = 0;
    PostedList mTaken;                                         // guarded, but for isEmpty()
    int64_t mLastImmediate VYN_GUARDED_BY(mLock) = INT64_MIN;  // when the last one was due
    std::map<Key, Posted::Ptr> mDelayed VYN_GUARDED_BY(mLock);
};

}  // namespace vyn
