// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <vyn/worker.h>

#include <cerrno>
#include <new>

#include "common/tick.h"
#include "connector/worker_registry.h"

// Writing, and write queues that overflowed.

namespace vyn {

namespace {

constexpr long kRetryMs = 10;

// Makes room for one more, if there is memory for it.
bool hasRoom(std::vector<Registration>& out) {
    try {
        if (out.size() == out.capacity()) out.reserve(2 * out.size() + 1);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

}  // namespace

void WorkerRegistry::requestWrite(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = mEntries.find(worker);
    if (entry == nullptr || !entry->ready) return;
    pushWriteRequest(*entry);
    mWakePipe.wake();
}

int WorkerRegistry::armRequestedWrites(std::vector<Registration>& direct, int64_t now) {
    direct.clear();
    const bool retry = mNextRetry <= now;
    if (!retry && !mHasWriteRequests.load(std::memory_order_acquire)) return 0;
    AutoLock lock(mLock);
    if (retry) takeDueRetries();
    mHasWriteRequests.store(false, std::memory_order_relaxed);
    int error = 0;
    while (mWrites.first() != nullptr && hasRoom(direct)) {
        WorkerEntry& entry = *mWrites.first();
        setRequests(entry, entry.requests & ~kToWrite);
        // One that is not valid would keep the loop awake without ever writing.
        if (!entry.worker->isValid() || !entry.worker->needsServing()) continue;
        const Armed armed = canWriteNow(entry) ? Armed::kNever : arm(entry);
        if (armed == Armed::kNever) direct.push_back(entry.registration());
        if (armed != Armed::kLater) continue;
        error = errno;
        pushRetry(entry);
    }
    if (mWrites.first() != nullptr) noteRequests(mHasWriteRequests);
    return error;
}

int WorkerRegistry::awaitWritable(const Registration& registration) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = entryOf(registration);
    if (entry == nullptr) return 0;
    const Armed armed = arm(*entry);
    const int error = errno;
    if (armed == Armed::kNever) pushWriteRequest(*entry);
    if (armed != Armed::kLater) return 0;
    pushRetry(*entry);
    return error;
}

void WorkerRegistry::retryWrite(const Registration& registration) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = entryOf(registration);
    if (entry != nullptr) pushRetry(*entry);
}

bool WorkerRegistry::hasWrites() {
    AutoLock lock(mLock);
    for (const WorkerEntry& entry : mEntries.places()) {
        Worker* const worker = entry.worker;
        if (!entry.ready || !worker->isValid()) continue;
        if (worker->isLeaving()) return true;
        if (worker->hasWrittingData() && !mDescriptors.isSuspended(entry)) return true;
    }
    return false;
}

bool WorkerRegistry::disarmWrite(EpollToken token) {
    AutoLock lock(mLock);
    return mDescriptors.disarmWrite(token);
}

void WorkerRegistry::beginServing() {
    AutoLock lock(mLock);
    mServing = true;
}

bool WorkerRegistry::endServing() {
    AutoLock lock(mLock);
    mServing = false;
    for (const WorkerEntry* each = mOverflows.first(); each != nullptr; each = each->next) {
        mServing = mServing || each->ready;
    }
    return !mServing;
}

bool WorkerRegistry::requestOverflow(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = mEntries.find(worker);
    if (entry == nullptr || (entry->ready && !mServing)) return false;
    setRequests(*entry, entry->requests | kToReportOverflow);
    noteRequests(mHasOverflowRequests);
    return true;
}

void WorkerRegistry::takeOverflows(std::vector<Registration>& out) {
    out.clear();
    if (!mHasOverflowRequests.load(std::memory_order_acquire)) return;
    AutoLock lock(mLock);
    mHasOverflowRequests.store(false, std::memory_order_relaxed);
    for (WorkerEntry* next = mOverflows.first(); next != nullptr;) {
        WorkerEntry& entry = *next;
        next = entry.next;
        if (!entry.ready) continue;
        if (!hasRoom(out)) return noteRequests(mHasOverflowRequests);
        out.push_back(entry.registration());
        setRequests(entry, entry.requests & ~kToReportOverflow);
    }
}

void WorkerRegistry::pushWriteRequest(WorkerEntry& entry) {
    if (!entry.ready || (entry.requests & kToWriteLater) != 0) return;
    setRequests(entry, entry.requests | kToWrite);
}

void WorkerRegistry::pushRetry(WorkerEntry& entry) {
    setRequests(entry, entry.requests | kToWriteLater);
}

// All of them: those that were added later come a little early.
void WorkerRegistry::takeDueRetries() {
    mNextRetry = INT64_MAX;
    while (mRetries.first() != nullptr) setRequests(*mRetries.first(), kToWrite);
}

WorkerRegistry::Armed WorkerRegistry::arm(WorkerEntry& entry) {
    try {
        return mDescriptors.armWrite(entry);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return Armed::kLater;
    }
}

// Whether a write finds out by itself, without waiting, what the descriptor takes. One of a device
// of the application's is asked for its mode each time, which the application may have changed.
bool WorkerRegistry::canWriteNow(const WorkerEntry& entry) {
    if (!entry.worker->hasWrittingData()) return true;
    return mDescriptors.canArmWrite(entry) &&
           (entry.worker->drainsWithoutWaiting() ||
            (fcntl(entry.worker->getFd(), F_GETFL) & O_NONBLOCK) != 0);
}

void WorkerRegistry::setRequests(WorkerEntry& entry, int requests) {
    RequestList* const before = listOf(entry);
    entry.requests = static_cast<unsigned char>(requests);
    RequestList* const after = listOf(entry);
    if (after == before) return;
    if (before != nullptr) before->erase(entry);
    if (after == &mRetries && mRetries.first() == nullptr) mNextRetry = tick::after(kRetryMs);
    if (after == &mWrites) mHasWriteRequests.store(true, std::memory_order_release);
    if (after != nullptr) after->append(entry);
}

RequestList* WorkerRegistry::listOf(const WorkerEntry& entry) {
    if ((entry.requests & kToReportOverflow) != 0) return &mOverflows;
    if ((entry.requests & kToWriteLater) != 0) return &mRetries;
    return (entry.requests & kToWrite) != 0 ? &mWrites : nullptr;
}

// There are such requests, for the next turn.
void WorkerRegistry::noteRequests(std::atomic<bool>& kind) {
    kind.store(true, std::memory_order_release);
    mWakePipe.wake();
}

}  // namespace vyn
