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
    Worker* worker = nullptr;  // null while the entry is nobody's
    uint64_t ticket = 0;
    WorkerEntry* nextInBucket = nullptr;  // see WorkerTable
    WorkerEntry* previous = nullptr;      // in the list that it is in, see RequestList
    WorkerEntry* next = nullptr;
    int firstFd = -1;      // its descriptors are chained, see WatchedDescriptors
    bool isPlain = false;  // epoll can not watch its descriptor: it is a plain file, or such
    bool ready = false;    // its onReady() has returned
    unsigned char requests = 0;

    Registration registration() const { return {worker, ticket}; }
};

// What may be asked for a worker, as bits.
constexpr unsigned char kToWrite = 1;
constexpr unsigned char kToWriteLater = 2;
constexpr unsigned char kToReportOverflow = 4;

// Entries in the order in which something was asked for them. The links are their own, as there may
// be no memory left where requests come from; so an entry is in one list at a time.
class RequestList {
  public:
    WorkerEntry* first() const { return mFirst; }

    void append(WorkerEntry& entry) {
        entry.previous = mLast;
        entry.next = nullptr;
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
