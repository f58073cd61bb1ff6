#pragma once

#include <vyn/connector.h>
#include <vyn/lock.h>

#include <atomic>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "connector/epoll.h"
#include "connector/wake_pipe.h"

namespace vyn {

// A connector's workers and the descriptors registered for them.
//
// Any thread may add, remove and request; the rest belongs to the loop. The lock is held for
// look-ups only, never while a worker calls the application. No operation but snapshot() and
// reopenEpoll() takes time that grows with the number of workers.
class WorkerRegistry {
  public:
    // Neither is owned. `wakePipe` is woken for requests.
    WorkerRegistry(Epoll& epoll, WakePipe& wakePipe) : mEpoll(epoll), mWakePipe(wakePipe) {}
    WorkerRegistry(const WorkerRegistry&) = delete;
    WorkerRegistry& operator=(const WorkerRegistry&) = delete;

    // What add() did.
    struct Added {
        // Not 0 for a worker that is new here. The caller calls its onReady() and then
        // setReady(); until then the loop leaves the worker alone, as an event might end it.
        uint64_t ticket = 0;
        // A descriptor that the kernel refused to watch, with its errno; -1 when there is none.
        int refusedFd = -1;
        int error = 0;
    };
    // Attaches the worker and registers those of its descriptors that are not registered yet.
    Added add(Worker* worker, Connector* connector, Connector::Executor* executor);
    // The worker may have been removed, and even deleted, in its onReady().
    void setReady(Worker* worker, uint64_t ticket);
    // Forgets the worker and all descriptors registered for it, also those closed meanwhile.
    // Unknown workers are ignored.
    void remove(Worker* worker);
    bool contains(Worker* worker);
    // Counts the removals, so that somebody who walks over workers notices one.
    uint32_t removals() const { return mRemovals.load(std::memory_order_acquire); }
    // The workers in the order in which they were added, without those that are not ready. `out` is
    // emptied first.
    void snapshot(std::vector<Worker*>& out);

    // --- Events.
    enum class Owner {
        kValid,
        kNotValid,
        kNotReady,  // the event comes again when it is
        kGone,      // the registration ended: the number may be another's by now
    };
    // Whose event this is; sets `worker` when that is kValid.
    Owner find(EpollToken token, Worker*& worker);
    // Lets epoll forget a descriptor whose worker is not valid any more.
    void stopWatching(EpollToken token);
    // Puts a new epoll set in the place of the old one, and every watched descriptor into it.
    void reopenEpoll();

    // --- Writing.
    // Any thread. Has armRequestedWrites() look at the worker; unknown ones are ignored.
    void requestWrite(Worker* worker);
    // Sees to the requested workers that have something to write. Those that can find out without
    // waiting what is taken go to `direct`, which is emptied first: they are to write at once. The
    // others get an interest in writing.
    void armRequestedWrites(std::vector<Worker*>& direct);
    // For one of those that was left with something to write: gives it the interest, or has the
    // next turn look at it again when its device has no descriptor that tells when it takes more.
    void awaitWritable(Worker* worker);
    // Drops the interest again.
    void disarmWrite(EpollToken token);

    // --- Write queues that overflowed.
    // Any thread. Unknown workers are ignored.
    void requestOverflow(Worker* worker);
    // Takes the workers that were requested and are still here. `out` is emptied first.
    void takeOverflows(std::vector<Worker*>& out);

  private:
    struct Entry {
        Worker* worker = nullptr;
        uint64_t ticket = 0;
        int firstFd = -1;  // its descriptors are chained through their slots
        bool ready = false;
        bool writeRequested = false;
        Entry* previous = nullptr;  // in the order of addition
        Entry* next = nullptr;
    };
    // What is known of a descriptor, by its number.
    struct Slot {
        Entry* owner = nullptr;
        uint32_t generation = 0;
        int nextFd = -1;
        bool watched = false;
        bool writeArmed = false;
        bool readOnly = false;  // never becomes writable, as standard input that is a pipe
    };

    Entry& enlist(Worker* worker) VYN_REQUIRES(mLock);
    void delist(Entry& entry) VYN_REQUIRES(mLock);
    void registerDescriptors(Entry& entry, Added& added) VYN_REQUIRES(mLock);
    void registerDescriptor(Entry& entry, int fd, Added& added) VYN_REQUIRES(mLock);
    bool owns(const Entry& entry, int fd) const VYN_REQUIRES(mLock);
    uint32_t nextGeneration() VYN_REQUIRES(mLock);
    void unchain(int fd) VYN_REQUIRES(mLock);
    void pushWriteRequest(Entry& entry) VYN_REQUIRES(mLock);
    bool canWriteNow(const Entry& entry) VYN_REQUIRES(mLock);
    bool armWrite(Entry& entry) VYN_REQUIRES(mLock);
    Slot& slotOf(int fd) VYN_REQUIRES(mLock);
    Slot* watchedSlot(EpollToken token) VYN_REQUIRES(mLock);

    Epoll& mEpoll;
    WakePipe& mWakePipe;
    Lock mLock;
    std::unordered_map<Worker*, Entry> mEntries VYN_GUARDED_BY(mLock);
    Entry* mFirst VYN_GUARDED_BY(mLock) = nullptr;
    Entry* mLast VYN_GUARDED_BY(mLock) = nullptr;
    uint64_t mLastTicket VYN_GUARDED_BY(mLock) = 0;
    std::vector<Slot> mSlots VYN_GUARDED_BY(mLock);
    uint32_t mLastGeneration VYN_GUARDED_BY(mLock) = 0;
    // By address only: a worker may be gone by the time it is looked up.
    std::vector<Worker*> mWriteRequests VYN_GUARDED_BY(mLock);
    std::vector<Worker*> mOverflowRequests VYN_GUARDED_BY(mLock);
    // Spare the loop the lock when there is nothing to look at.
    std::atomic<bool> mHasWriteRequests{false};
    std::atomic<bool> mHasOverflowRequests{false};
    std::atomic<uint32_t> mRemovals{0};
};

}  // namespace vyn
