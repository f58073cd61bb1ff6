#pragma once

#include <vyn/connector.h>
#include <vyn/lock.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

#include "connector/epoll.h"
#include "connector/wake_pipe.h"

namespace vyn {

// A connector's workers and the descriptors registered for them.
//
// Any thread may add, remove and request; the rest belongs to the loop. The lock is held for
// look-ups only, never while a worker calls the application. No operation but snapshot() takes time
// that grows with the number of workers.
class WorkerRegistry {
  public:
    // Neither is owned. `wakePipe` is woken for requests.
    WorkerRegistry(Epoll& epoll, WakePipe& wakePipe) : mEpoll(epoll), mWakePipe(wakePipe) {}
    WorkerRegistry(const WorkerRegistry&) = delete;
    WorkerRegistry& operator=(const WorkerRegistry&) = delete;

    // Attaches the worker and registers its descriptors. Returns true when the caller is to call
    // the onReady() of a worker that is new here. When the loop runs on another thread, where the
    // first event may end the worker at any time, that is requested of the loop instead.
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
    // Any thread. Has armRequestedWrites() look at the worker; unknown ones are ignored.
    void requestWrite(Worker* worker);
    // Adds the interest in writing for the requested workers that have something to write.
    void armRequestedWrites();
    // Drops it again.
    void disarmWrite(EpollToken token);

    // --- What other threads ask the loop to call.
    struct Request {
        Worker* worker;  // null for no request
        void (Worker::*operation)();
    };
    // Any thread. Unknown workers are ignored.
    void requestDisconnect(Worker* worker);
    // The oldest request. The requests of a worker that is removed go with it.
    Request takeRequest();

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
    void pushWriteRequest(Entry& entry) VYN_REQUIRES(mLock);
    void armWrite(Entry& entry) VYN_REQUIRES(mLock);
    void pushRequest(Request request) VYN_REQUIRES(mLock);
    void dropRequests(Worker* worker) VYN_REQUIRES(mLock);
    Slot& slotOf(int fd) VYN_REQUIRES(mLock);
    Slot* currentSlot(EpollToken token) VYN_REQUIRES(mLock);

    Epoll& mEpoll;
    WakePipe& mWakePipe;
    Lock mLock;
    std::unordered_map<Worker*, Entry> mEntries VYN_GUARDED_BY(mLock);
    Entry* mFirst VYN_GUARDED_BY(mLock) = nullptr;
    Entry* mLast VYN_GUARDED_BY(mLock) = nullptr;
    std::vector<Slot> mSlots VYN_GUARDED_BY(mLock);
    uint32_t mLastGeneration VYN_GUARDED_BY(mLock) = 0;
    // By address only: a worker may be gone by the time it is looked up.
    std::vector<Worker*> mWriteRequests VYN_GUARDED_BY(mLock);
    std::deque<Request> mRequests VYN_GUARDED_BY(mLock);
    // Spare the loop the lock when there is nothing to look at.
    std::atomic<bool> mHasWriteRequests{false};
    std::atomic<bool> mHasRequests{false};
};

}  // namespace vyn
