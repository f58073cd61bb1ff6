#pragma once

#include <cstdint>

namespace vyn {

class Worker;

// What is remembered for later about a worker of a connector. By its address alone a worker cannot
// be told from one that was made in its place.
struct Registration {
    Worker* worker = nullptr;
    uint64_t ticket = 0;  // each addition of a worker gets its own; never 0
};

struct WorkerEntry;

// A worker's place in one list.
struct WorkerLinks {
    WorkerEntry* previous = nullptr;
    WorkerEntry* next = nullptr;
    bool linked = false;
};

// What a connector knows of one of its workers. Ends when the worker is removed, and takes all that
// was asked for the worker along.
struct WorkerEntry {
    Worker* worker = nullptr;
    uint64_t ticket = 0;
    int firstFd = -1;    // its descriptors are chained, see WatchedDescriptors
    bool ready = false;  // its onReady() has returned
    WorkerLinks inOrder, inWrites, inRetries, inOverflows;

    Registration registration() const { return {worker, ticket}; }
};

// A list of workers, each in it once at most. Needs no memory of its own.
template <WorkerLinks WorkerEntry::*Links>
class WorkerList {
  public:
    WorkerEntry* first() const { return mFirst; }
    static WorkerEntry* next(const WorkerEntry& entry) { return (entry.*Links).next; }
    bool empty() const { return mFirst == nullptr; }
    bool contains(const WorkerEntry& entry) const { return (entry.*Links).linked; }

    void append(WorkerEntry& entry) {
        if (contains(entry)) return;
        entry.*Links = {mLast, nullptr, true};
        (mLast == nullptr ? mFirst : (mLast->*Links).next) = &entry;
        mLast = &entry;
    }
    void erase(WorkerEntry& entry) {
        if (!contains(entry)) return;
        const WorkerLinks links = entry.*Links;
        (links.previous == nullptr ? mFirst : (links.previous->*Links).next) = links.next;
        (links.next == nullptr ? mLast : (links.next->*Links).previous) = links.previous;
        entry.*Links = {};
    }

  private:
    WorkerEntry* mFirst = nullptr;
    WorkerEntry* mLast = nullptr;
};

}  // namespace vyn
