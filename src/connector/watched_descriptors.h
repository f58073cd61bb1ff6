// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "connector/epoll.h"
#include "connector/worker_entry.h"

namespace vyn {

// Which descriptors are watched for which worker, and for what. Not locked.
//
// Each registration of a descriptor has a generation of its own, which its events carry: an event
// of one that has ended belongs to nobody, whoever has the descriptor's number by now.
class WatchedDescriptors {
  public:
    // Neither is owned. `changes` counts what may make ownerOf() tell another owner.
    WatchedDescriptors(Epoll& epoll, std::atomic<uint32_t>& changes)
        : mEpoll(epoll), mChanges(changes) {}

    // A descriptor that the kernel did not take, with its errno; -1 when there is none.
    struct Refusal {
        int fd = -1;
        int error = 0;
    };
    // Watches for reading what the worker's device names now, and forgets what it names no more.
    // What is watched already stays as it is. Does nothing for a worker that is not valid.
    Refusal update(WorkerEntry& entry);
    // The same, and watches them for reading, or not, as the worker wants by now.
    Refusal updateReading(WorkerEntry& entry);
    // Forgets all descriptors of the worker, also those that were closed meanwhile.
    void forget(WorkerEntry& entry);

    // Whose event this is; null when the registration has ended.
    WorkerEntry* ownerOf(EpollToken token);
    // Has epoll not report the descriptor again until update().
    void suspend(EpollToken token);

    // Whether the worker has a single descriptor, which is watched for reading only.
    bool canArmWrite(const WorkerEntry& entry) const;
    // Whether nothing can be written on its descriptor until it is read again, or added anew.
    bool isSuspended(const WorkerEntry& entry) const;
    enum class Armed {
        kYes,
        kNever,  // no descriptor of the worker's will ever be reported as writable
        kLater,  // the kernel refused for now; errno tells why
    };
    Armed armWrite(WorkerEntry& entry);
    // False, with errno, when the kernel refused.
    bool disarmWrite(EpollToken token);

    // At most that many are watched.
    size_t slots() const { return mSlots.size(); }
    // Puts every descriptor that is still the one that was registered into another set as well.
    // Returns 0, or the errno of a refusal. Where the old set itself `isLost`, those count that the
    // workers' devices name.
    int copyTo(Epoll& other, bool isLost);

  private:
    // The descriptors that a worker's device names. One by itself takes no memory.
    class Named {
      public:
        Named() = default;
        explicit Named(Worker& worker);
        const int* begin() const { return mOne >= 0 ? &mOne : mSeveral.data(); }
        const int* end() const { return mOne >= 0 ? &mOne + 1 : begin() + mSeveral.size(); }
        bool has(int fd) const;

      private:
        int mOne = -1;
        std::vector<int> mSeveral;
    };
    // What is known of a descriptor, by its number. There is one for each connection, so it is kept
    // small.
    struct Slot {
        WorkerEntry* owner = nullptr;
        uint32_t generation = 0;
        int nextFd = -1;             // the owner's next
        unsigned char interest = 0;  // what epoll watches it for, EPOLLIN and EPOLLOUT
        bool watched = false;        // whether epoll has it at all
        bool readOnly = false;       // never becomes writable, as standard input that is a pipe
    };

    static uint32_t readInterest(const WorkerEntry& entry);
    int watch(WorkerEntry& entry, int fd);
    void forgetUnnamed(WorkerEntry& entry, const Named& named);
    void unchain(int fd);
    bool isStillThere(int fd, const Slot& slot, bool isLost);
    int setInterest(int fd, uint32_t interest);
    bool owns(const WorkerEntry& entry, int fd) const;
    uint32_t nextGeneration();
    Slot& slotOf(int fd);
    Slot* watchedSlot(EpollToken token);

    void countChange() { mChanges.fetch_add(1, std::memory_order_release); }

    Epoll& mEpoll;
    std::atomic<uint32_t>& mChanges;
    std::vector<Slot> mSlots;
    uint32_t mLastGeneration = 0;
};

}  // namespace vyn
