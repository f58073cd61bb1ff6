// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/lock.h>
#include <vyn/message.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "connector/wake_pipe.h"

namespace vyn {

// A connector's messages, in the order of their ticks and, for equal ticks, of posting.
//
// Messages without a delay, which are nearly all, come in that order by themselves: they wait in a
// plain queue beside the ordered one of the delayed. The loop takes over that queue as a whole, so
// that it and those who post seldom meet at the lock. Any thread may post; the rest is the loop's.
class MessageQueue {
  public:
    // `wakePipe` is woken for what is posted; not owned.
    explicit MessageQueue(WakePipe& wakePipe) : mWakePipe(wakePipe) {}

    void post(Connector::Executor* target, const Message& message, long delayMs);

    // Takes the first message if it is due at `now`, a tick::now(). Returns false when there is
    // none.
    bool takeDue(Message& out, int64_t now);

    // Whether there is a message that was posted without a delay, and is therefore due.
    bool hasImmediate() const;
    // The tick::now() at which the first delayed message is due; INT64_MAX without one.
    int64_t nextDelayed() const { return mNextDelayed.load(std::memory_order_acquire); }

  private:
    // Unique, and ordered as the messages are to be delivered.
    struct Key {
        int64_t due;
        uint64_t sequence;
        bool operator<(const Key& other) const {
            return due != other.due ? due < other.due : sequence < other.sequence;
        }
    };
    struct Entry {
        Key key;
        Message message;
    };

    void addImmediate(Entry& entry) VYN_REQUIRES(mLock);
    void addDelayed(Entry& entry) VYN_REQUIRES(mLock);
    const Entry* firstImmediate();
    void takeOver();
    void takeImmediate(Message& out);
    void publishNextDelayed() VYN_REQUIRES(mLock);

    WakePipe& mWakePipe;
    Lock mLock;
    uint64_t mNextSequence VYN_GUARDED_BY(mLock) = 0;
    int64_t mLastImmediate VYN_GUARDED_BY(mLock) = INT64_MIN;  // when the last one was due
    std::vector<Entry> mPosted VYN_GUARDED_BY(mLock);
    std::map<Key, Message> mDelayed VYN_GUARDED_BY(mLock);

    // Spare the loop the lock when there is nothing to look at.
    std::atomic<bool> mHasPosted{false};
    std::atomic<int64_t> mNextDelayed{INT64_MAX};

    // The loop's: those it took over, from mNextTaken on.
    std::vector<Entry> mTaken;
    size_t mNextTaken = 0;
};

}  // namespace vyn
