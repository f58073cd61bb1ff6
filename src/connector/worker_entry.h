// SPDX-License-Identifier: Apache-2.0

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

// What a connector knows of one of its workers. Ends when the worker is removed. There is one for
// each connection, so it is kept small.
struct WorkerEntry {
    Worker* worker = nullptr;
    uint64_t ticket = 0;
    WorkerEntry* previous = nullptr;  // in the order of addition
    WorkerEntry* next = nullptr;
    WorkerEntry* nextOverflowed = nullptr;
    int firstFd = -1;            // its descriptors are chained, see WatchedDescriptors
    bool isPlain = false;        // epoll can not watch its descriptor: it is a plain file, or such
    bool ready = false;          // its onReady() has returned
    bool asksToWrite = false;    // it is among those requests,
    bool waitsToWrite = false;   // those that are tried again,
    bool hasOverflowed = false;  // and those overflows

    Registration registration() const { return {worker, ticket}; }
};

// Workers in the order in which they were added.
class WorkerList {
  public:
    WorkerEntry* first() const { return mFirst; }

    void append(WorkerEntry& entry) {
        entry.previous = mLast;
        (mLast == nullptr ? mFirst : mLast->next) = &entry;
        mLast = &entry;
    }
    void erase(WorkerEntry& entry) {
        (entry.previous == nullptr ? mFirst : entry.previous->next) = entry.next;
        (entry.next == nullptr ? mLast : entry.next->previous) = entry.previous;
    }

  private:
    WorkerEntry* mFirst = nullptr;
    WorkerEntry* mLast = nullptr;
};

}  // namespace vyn
