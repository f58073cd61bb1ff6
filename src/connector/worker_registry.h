#pragma once

#include <vyn/connector.h>
#include <vyn/lock.h>

#include <atomic>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "connector/epoll.h"

namespace vyn {

// A connector's workers and the descriptors registered for them.
//
// Any thread may add, remove and request; the rest belongs to the loop. The lock is held for
// look-ups only, never while a worker calls the application. No operation but snapshot() takes time
// that grows with the number of workers.
class WorkerRegistry {
  public:
    explicit WorkerRegistry(Epoll& epoll) : mEpoll(epoll) {}
    WorkerRegistry(const WorkerRegistry&) = delete;
    WorkerRegistry& operator=(const WorkerRegistry&) = delete;

    // Attaches the worker and registers its descriptors that are new. Returns true for a worker
    // that was not here yet.
    bool add(Worker* worker, Connector* connector, Connector::Executor* executor);
    // Forgets the worker and all descriptors registered for it, also those closed meanwhile.
    // Returns false for an unknown worker.
    bool remove(Worker* worker);
    bool contains(Worker* worker);
    // The workers in the order in which they were added. `out` is emptied first.
    void snapshot(std::vector<Worker*>& out);

    // --- Events.
    struct Owner {
        // False for a registration that is gone: the number may be another's by now.
        bool current;
        // Null when there is none, or it is not valid.
        Worker* worker;
    };
    Owner find(EpollToken token);
    // Lets epoll forget a descriptor whose worker is not valid any more.
    void stopWatching(EpollToken token);
    // Puts a new epoll set in the place of the old one, and every watched descriptor into it.
    void reopenEpoll();

    // --- Writing.
    // Any thread. Has armRequestedWrites() look at the worker. Returns false for an unknown worker.
    bool requestWrite(Worker* worker);
    // Adds the interest in writing for the requested workers that have something to write.
    void armRequestedWrites();
    // Drops it again.
    void disarmWrite(EpollToken token);

    // --- Disconnecting.
    // Any thread. Returns false for an unknown worker.
    bool requestDisconnect(Worker* worker);
    // One requested worker that is still here, or null when there are no more.
    Worker* takeDisconnect();

  private:
    struct Entry {
        int firstFd = -1;  // its descriptors are chained through their slots
        bool writeRequested = false;
        Entry* previous = nullptr;  // in the order of addition
        Entry* next = nullptr;
        Worker* worker = nullptr;
    };
    // What is known of a descriptor, by its number.
    struct Slot {
        Entry* owner = nullptr;
        uint32_t generation = 0;
        int nextFd = -1;
        bool watched = false;
        bool writeArmed = false;
    };

    Entry& enlist(Worker* worker) VYN_REQUIRES(mLock);
    void delist(Entry& entry) VYN_REQUIRES(mLock);
    void registerDescriptors(Entry& entry) VYN_REQUIRES(mLock);
    void registerDescriptor(Entry& entry, int fd) VYN_REQUIRES(mLock);
    void unchain(int fd) VYN_REQUIRES(mLock);
    void armWrite(Entry& entry) VYN_REQUIRES(mLock);
    Slot& slotOf(int fd) VYN_REQUIRES(mLock);
    Slot* currentSlot(EpollToken token) VYN_REQUIRES(mLock);

    Epoll& mEpoll;
    Lock mLock;
    std::unordered_map<Worker*, Entry> mEntries VYN_GUARDED_BY(mLock);
    Entry* mFirst VYN_GUARDED_BY(mLock) = nullptr;
    Entry* mLast VYN_GUARDED_BY(mLock) = nullptr;
    std::vector<Slot> mSlots VYN_GUARDED_BY(mLock);
    uint32_t mLastGeneration VYN_GUARDED_BY(mLock) = 0;
    // Requests name workers by address only, as they may be gone by the time they are looked at.
    std::vector<Worker*> mWriteRequests VYN_GUARDED_BY(mLock);
    std::vector<Worker*> mDisconnectRequests VYN_GUARDED_BY(mLock);
    // Spare the loop the lock when there is nothing to look at.
    std::atomic<bool> mHasWriteRequests{false};
    std::atomic<bool> mHasDisconnectRequests{false};
};

}  // namespace vyn
