#pragma once

#include <vyn/lock.h>
#include <vyn/message.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>

#include "connector/wake_pipe.h"

namespace vyn {

// A connector's messages, in the order of their ticks and, for equal ticks, of posting.
//
// Messages without a delay, which are nearly all, come in that order by themselves: they wait in a
// plain queue beside the ordered one of the delayed. Any thread may post; the loop takes.
class MessageQueue {
  public:
    // `wakePipe` is woken for what is posted; not owned.
    explicit MessageQueue(WakePipe& wakePipe) : mWakePipe(wakePipe) {}

    void post(Connector::Executor* target, const Message& message, long delayMs);

    // Takes the first message if it is due. Returns false when there is none.
    bool takeDue(Message& out);

    // The tick::now() at which the first message is due; INT64_MAX without messages.
    int64_t nextDue() const { return mNextDue.load(std::memory_order_acquire); }

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

    bool immediateIsFirst() const VYN_REQUIRES(mLock);
    void publishNextDue() VYN_REQUIRES(mLock);

    WakePipe& mWakePipe;
    Lock mLock;
    uint64_t mNextSequence VYN_GUARDED_BY(mLock) = 0;
    std::deque<Entry> mImmediate VYN_GUARDED_BY(mLock);
    std::map<Key, Message> mDelayed VYN_GUARDED_BY(mLock);

    std::atomic<int64_t> mNextDue{INT64_MAX};
};

}  // namespace vyn
