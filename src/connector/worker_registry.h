// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/connector.h>
#include <vyn/lock.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "connector/epoll.h"
#include "connector/wake_pipe.h"
#include "connector/watched_descriptors.h"
#include "connector/worker_entry.h"
#include "connector/worker_table.h"

namespace vyn {

// A connector's workers, and what is asked for them.
//
// Any thread may add, remove and request; the rest belongs to the loop. The lock is held for
// look-ups only, never while a worker calls the application. No operation but the lists and
// reopenEpoll() takes time that grows with the number of workers. What was asked for is not lost
// for want of memory.
class WorkerRegistry {
  public:
    // Neither is owned. `wakePipe` is woken for requests.
    WorkerRegistry(Epoll& epoll, WakePipe& wakePipe)
        : mEpoll(epoll), mWakePipe(wakePipe), mDescriptors(epoll, mChanges) {}
    WorkerRegistry(const WorkerRegistry&) = delete;
    WorkerRegistry& operator=(const WorkerRegistry&) = delete;

    using Refusal = WatchedDescriptors::Refusal;
    struct Added {
        // Not 0 for a worker that is new here. The caller calls its onReady() and then
        // setReady(); until then the loop leaves the worker alone, as an event might end it.
        uint64_t ticket = 0;
        Refusal refusal;
    };
    // Attaches the worker and watches the descriptors that its device names. std::bad_alloc leaves
    // a new one out.
    Added add(Worker* worker, Connector* connector, Connector::Executor* executor);
    struct Readied {
        // No loop runs to see to it: the caller calls its onWriteQueueOverflow().
        bool hasOverflowed = false;
        Refusal refusal;
    };
    // Watches the descriptors that the device names by now. The worker may have been removed, and
    // even deleted, in its onReady().
    Readied setReady(const Registration& registration);
    // Watches the descriptors that the worker's device names now, in the place of those that it
    // named before. Unknown workers are ignored.
    Refusal update(Worker* worker);
    // Watches them for reading, or not, as the worker wants by now. Unknown workers are ignored.
    Refusal updateReading(Worker* worker);
    // Watches none of them, until it is told to. Returns the worker's ticket, or 0 for an unknown
    // one.
    uint64_t rest(Worker* worker);
    // Forgets the worker, all descriptors registered for it, also those closed meanwhile, and what
    // was requested for it. Unknown workers are ignored.
    void remove(Worker* worker);

    // The ticket of the worker's registration; 0 for an unknown one.
    uint64_t ticketOf(Worker* worker);
    // Whether the registration has not ended, in which case the worker exists.
    bool holds(const Registration& registration);
    // Count the removals, and the workers that became ready, so that somebody who walks over
    // workers notices one.
    uint32_t removals() const { return mRemovals.load(std::memory_order_acquire); }
    uint32_t arrivals() const { return mArrivals.load(std::memory_order_acquire); }
    size_t size();
    // The workers in the order in which they were added: all, or those that are ready. `out` is
    // emptied first.
    void listAll(std::vector<Registration>& out);
    void listReady(std::vector<Registration>& out);

    // --- Events.
    enum class Owner {
        kValid,
        kNotValid,
        kEnding,    // not valid, which its application is still to be told
        kNotReady,  // its descriptors are not watched until it is
        kGone,      // the registration ended: the number may be another's by now
    };
    // Whose event this is; sets `worker` when that is kValid.
    Owner find(EpollToken token, Worker*& worker);
    // Finds the owners of a wait's events, all at once: where there are many connections, the way
    // to a worker leads through several misses of the processor's cache, which are made side by
    // side.
    void findAll(const epoll_event* events, int count);
    // The worker of the event with that index, if findAll() saw one that was ready, and nothing has
    // changed since about what is watched. It may not be valid. Null says nothing: see find().
    Worker* foundFor(int event) const {
        const bool isStillSo = mChanges.load(std::memory_order_acquire) == mChangesBefore;
        return isStillSo ? mFound[static_cast<size_t>(event)] : nullptr;
    }
    // Lets epoll forget the descriptor, until its worker is added again.
    void stopWatching(EpollToken token);
    // The same for one whose peer has hung up while its worker does not read, until it does.
    void stopWatchingPaused(EpollToken token);
    // How many events there may be at a time, at most.
    int64_t mostEvents();
    // Puts a new epoll set in the place of the old one, which may be lost (see Epoll::replaceBy()),
    // and every watched descriptor into it. Returns 0, or an errno and the old set is kept.
    int reopenEpoll(bool isLost);

    // Whether there is something for armRequestedWrites() or takeOverflows() to see to.
    bool hasRequests(int64_t now) const {
        return mNextRetry <= now || mHasWriteRequests.load(std::memory_order_acquire) ||
               mHasOverflowRequests.load(std::memory_order_acquire);
    }

    // --- Writing.
    // Any thread. Has armRequestedWrites() look at the worker; unknown ones are ignored, and such
    // as are not ready are looked at when they are.
    void requestWrite(Worker* worker);
    // Sees to the requested workers that have something to write, as many as there is memory for:
    // the others come in the next turn. Those that can find out without waiting what is taken go to
    // `direct`, which is emptied first: they are to write at once. The others get an interest in
    // writing. Returns 0, or the errno with which the kernel refused that to one of them, which is
    // tried again. `now` is a tick::now().
    int armRequestedWrites(std::vector<Registration>& direct, int64_t now);
    // For one of those that was left with something to write: gives it the interest, or has the
    // next turn look at it again when its device has no descriptor that tells when it takes more.
    // Returns as armRequestedWrites() does.
    int awaitWritable(const Registration& registration);
    // Whether a worker that is ready has something left to write.
    bool hasWrites();
    // Has armRequestedWrites() look at the worker again 10 ms from now.
    void retryWrite(const Registration& registration);
    // The tick::now() at which there is something to try again; INT64_MAX without.
    int64_t nextRetry() const { return mNextRetry; }
    // Drops the interest again. False, with errno, when the kernel refused.
    bool disarmWrite(EpollToken token);

    // --- Write queues that overflowed.
    // A loop sees to the requests from here on.
    void beginServing();
    // Ends that, unless there are requests that it has to see to first; then false.
    bool endServing();
    // Any thread. Has the loop's next turn take the worker, or the caller of its setReady() when it
    // is not ready. False when nobody will: it is unknown, or no loop runs.
    bool requestOverflow(Worker* worker);
    // Takes the workers that were requested, as many as there is memory for: the others come in the
    // next turn. `out` is emptied first.
    void takeOverflows(std::vector<Registration>& out);

  private:
    using Armed = WatchedDescriptors::Armed;

    WorkerEntry* entryOf(const Registration& registration) VYN_REQUIRES(mLock);
    void pushWriteRequest(WorkerEntry& entry) VYN_REQUIRES(mLock);
    void pushRetry(WorkerEntry& entry) VYN_REQUIRES(mLock);
    void takeDueRetries() VYN_REQUIRES(mLock);
    Armed arm(WorkerEntry& entry) VYN_REQUIRES(mLock);
    bool canWriteNow(const WorkerEntry& entry) VYN_REQUIRES(mLock);
    void setRequests(WorkerEntry& entry, int requests) VYN_REQUIRES(mLock);
    RequestList* listOf(const WorkerEntry& entry) VYN_REQUIRES(mLock);
    void noteRequests(std::atomic<bool>& kind);
    void drop(WorkerEntry& entry) VYN_REQUIRES(mLock);

    Epoll& mEpoll;
    WakePipe& mWakePipe;
    Lock mLock;
    std::atomic<uint32_t> mChanges{0};  // of who owns what is watched
    WorkerTable mEntries VYN_GUARDED_BY(mLock);
    WatchedDescriptors mDescriptors VYN_GUARDED_BY(mLock);
    uint64_t mLastTicket VYN_GUARDED_BY(mLock) = 0;
    bool mServing VYN_GUARDED_BY(mLock) = false;
    // An entry for which several things are asked is in the list of the last of these.
    RequestList mWrites VYN_GUARDED_BY(mLock);
    RequestList mRetries VYN_GUARDED_BY(mLock);
    RequestList mOverflows VYN_GUARDED_BY(mLock);
    // The loop's; what was found, and mChanges then.
    int64_t mNextRetry = INT64_MAX;
    std::array<Worker*, Epoll::kMostEvents> mFound = {};
    uint32_t mChangesBefore = 0;
    // Spare the loop the lock when there is nothing to look at.
    std::atomic<bool> mHasWriteRequests{false};
    std::atomic<bool> mHasOverflowRequests{false};
    std::atomic<uint32_t> mRemovals{0};
    std::atomic<uint32_t> mArrivals{0};
};

}  // namespace vyn
