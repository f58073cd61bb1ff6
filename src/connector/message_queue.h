// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/lock.h>
#include <vyn/message.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>

#include "connector/posted.h"
#include "connector/posted_list.h"
#include "connector/posted_stack.h"
#include "connector/wake_pipe.h"

namespace vyn {

// A connector's messages and functions, in the order of their ticks and, for equal ticks, of
// posting.
//
// Those without a delay, which are nearly all, come in that order by themselves: they are pushed
// without a lock, and the loop takes over all that there are when it has delivered those that it
// took before. Only the others are put in order, and compared with them in every turn.
//
// Any thread may post, cancel and remove; the rest is the loop's. What is to be withdrawn is looked
// for in what the loop took over, too. If it is being delivered meanwhile, the call waits for its
// end, but never on a thread that serves a loop: two of them would wait for each other for ever.
class MessageQueue {
  public:
    // Is told of messages that are dropped.
    using DropListener = std::function<void(const Message&)>;

    // `wakePipe` is woken for what is posted; not owned.
    explicit MessageQueue(WakePipe& wakePipe) : mWakePipe(wakePipe) {}
    ~MessageQueue() { clear(); }
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    // Throws when there is no memory, and has done nothing then.
    void post(Connector::Executor* target, const Message& message, long delayMs);
    // Returns what to cancel it by: a number that no other has.
    uint64_t post(std::function<void()> function, long delayMs);

    // Forgets a function; unknown numbers are ignored.
    void cancel(uint64_t id);
    // Drops the messages to an executor that carry no callback: those with the code `what`, or all
    // for null.
    void remove(const Connector::Executor* target, const int* what);
    // Drops everything, also what is posted meanwhile by the functions that are destroyed.
    void clear();
    // Before other threads use this.
    void setDropListener(DropListener listener) { mDropListener = std::move(listener); }

    // What is being delivered, until this goes; or nothing.
    struct EndDelivery {
        MessageQueue* queue;
        void operator()(Posted* delivered) const;
    };
    using Delivery = std::unique_ptr<Posted, EndDelivery>;

    // Takes the first one if it is due at `now`, a tick::now().
    [[nodiscard]] Delivery takeDue(int64_t now);

    // Whether there is one that was posted without a delay, and is therefore due.
    bool hasImmediate() const { return !mTaken.isEmpty() || !mPosted.isEmpty(); }
    // Has the loop woken for what is posted without a delay from here on. Returns false when
    // hasImmediate().
    [[nodiscard]] bool beginWait() { return mTaken.isEmpty() && mPosted.beginWait(); }
    // How many wait. Any thread; on others than the loop's, those are left out that the loop has
    // not come to look at.
    size_t waiting();
    // The tick::now() at which the first delayed one is due; INT64_MAX without one.
    int64_t nextDelayed() const { return mNextDelayed.load(std::memory_order_acquire); }

  private:
    // Unique, and ordered as they are to be delivered.
    struct Key {
        int64_t due;
        uint64_t id;
        bool isEarly;  // posted before it is due
        bool operator<(const Key& other) const {
            return due != other.due ? due < other.due : id < other.id;
        }
    };

    void add(Posted::Ptr posted, uint64_t id, long delayMs);
    void addDelayed(Posted::Ptr posted, const Key& key);
    void insert(Posted::Ptr posted, const Key& key) VYN_REQUIRES(mLock);
    bool takeOver() VYN_REQUIRES(mLock);
    void takeOverForLoop() VYN_REQUIRES(mLock);
    Posted* firstImmediate() VYN_REQUIRES(mLock);
    bool isDelayedNext(const Posted* immediate, int64_t now) const VYN_REQUIRES(mLock);
    Posted* takeImmediate() VYN_REQUIRES(mLock);
    Posted* takeDelayed() VYN_REQUIRES(mLock);
    Delivery deliver(Posted* posted) VYN_REQUIRES(mLock);
    void publishNextDelayed() VYN_REQUIRES(mLock);

    std::function<void()> takeFunction(uint64_t id) VYN_REQUIRES(mLock);
    Posted* takeMessages(const std::function<bool(Posted&)>& matches) VYN_REQUIRES(mLock);
    Posted* takeAll() VYN_REQUIRES(mLock);
    void indexFunctions() VYN_REQUIRES(mLock);
    void drop(Posted* first);
    void awaitEnd(uint32_t delivery) const;

    WakePipe& mWakePipe;
    PostedStack mPosted{mWakePipe};
    // Alone in its line of the cache, too: it belongs to those who post.
    alignas(64) std::atomic<uint64_t> mLastId{0};
    // Spares the loop the lock when there is nothing to look at.
    alignas(64) std::atomic<int64_t> mNextDelayed{INT64_MAX};
    DropListener mDropListener;

    // Taken by the loop for each delivery, and by others for what they seldom do: these do not
    // include posting without a delay.
    BriefLock mLock;
    PostedList mTaken;                                         // guarded, but for isEmpty()
    int64_t mLastImmediate VYN_GUARDED_BY(mLock) = INT64_MIN;  // when the last one was due
    std::map<Key, Posted::Ptr> mDelayed VYN_GUARDED_BY(mLock);
    // The functions among mDelayed; and among mTaken, those before mUnindexed, which are looked up
    // only once some function is cancelled.
    std::unordered_map<uint64_t, Posted*> mFunctions VYN_GUARDED_BY(mLock);
    Posted* mUnindexed = nullptr;  // guarded, which the analysis does not see in a lambda

    // What is being delivered: counted at its beginning and at its end, so odd meanwhile.
    std::atomic<uint32_t> mDelivery{0};
    struct Delivered {
        uint64_t id;                        // 0 for a message
        const Connector::Executor* target;  // null for none
        int what;
    };
    Delivered mDelivered VYN_GUARDED_BY(mLock) = {};
};

}  // namespace vyn
