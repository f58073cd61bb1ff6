// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "common/tick.h"
#include "connector/worker_registry.h"

// Writing, and write queues that overflowed.

namespace vyn {

namespace {

constexpr long kRetryMs = 10;

}  // namespace

void WorkerRegistry::requestWrite(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = entryOf(worker);
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
    for (const Registration& request : mWrites) {
        WorkerEntry* const entry = entryOf(request);
        if (entry == nullptr) continue;
        entry->asksToWrite = false;
        if (entry->waitsToWrite) continue;  // since it asked
        // One that is not valid would keep the loop awake without ever writing.
        if (!entry->worker->isValid() || !entry->worker->needsServing()) continue;
        const auto armed =
            canWriteNow(*entry) ? WatchedDescriptors::Armed::kNever : mDescriptors.armWrite(*entry);
        if (armed == WatchedDescriptors::Armed::kNever) direct.push_back(entry->registration());
        if (armed != WatchedDescriptors::Armed::kLater) continue;
        error = errno;
        pushRetry(*entry);
    }
    mWrites.clear();
    return error;
}

int WorkerRegistry::awaitWritable(const Registration& registration) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = entryOf(registration);
    if (entry == nullptr) return 0;
    const WatchedDescriptors::Armed armed = mDescriptors.armWrite(*entry);
    const int error = errno;
    if (armed == WatchedDescriptors::Armed::kNever) pushWriteRequest(*entry);
    if (armed != WatchedDescriptors::Armed::kLater) return 0;
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
    for (WorkerEntry* entry = mOrder.first(); entry != nullptr; entry = entry->next) {
        Worker* const worker = entry->worker;
        if (!entry->ready || !worker->isValid()) continue;
        if (worker->isLeaving()) return true;
        if (worker->hasWrittingData() && !mDescriptors.isSuspended(*entry)) return true;
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
    for (const WorkerEntry* each = mLastOverflowed; each != nullptr; each = each->nextOverflowed) {
        mServing = mServing || each->ready;
    }
    return !mServing;
}

bool WorkerRegistry::requestOverflow(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = entryOf(worker);
    if (entry == nullptr || (entry->ready && !mServing)) return false;
    if (!std::exchange(entry->hasOverflowed, true)) {
        entry->nextOverflowed = std::exchange(mLastOverflowed, entry);
    }
    mHasOverflowRequests.store(true, std::memory_order_release);
    mWakePipe.wake();
    return true;
}

void WorkerRegistry::takeOverflows(std::vector<Registration>& out) {
    out.clear();
    if (!mHasOverflowRequests.load(std::memory_order_acquire)) return;
    AutoLock lock(mLock);
    mHasOverflowRequests.store(false, std::memory_order_relaxed);
    for (WorkerEntry** link = &mLastOverflowed; *link != nullptr;) {
        WorkerEntry& entry = **link;
        if (entry.ready) {
            out.push_back(entry.registration());
            entry.hasOverflowed = false;
            *link = entry.nextOverflowed;
        } else {
            link = &entry.nextOverflowed;
        }
    }
    std::reverse(out.begin(), out.end());
}

void WorkerRegistry::withdrawOverflow(WorkerEntry& entry) {
    if (!std::exchange(entry.hasOverflowed, false)) return;
    WorkerEntry** link = &mLastOverflowed;
    while (*link != &entry) link = &(*link)->nextOverflowed;
    *link = entry.nextOverflowed;
}

void WorkerRegistry::pushWriteRequest(WorkerEntry& entry) {
    if (!entry.ready || entry.waitsToWrite || entry.asksToWrite) return;
    mWrites.push_back(entry.registration());
    entry.asksToWrite = true;
    mHasWriteRequests.store(true, std::memory_order_release);
}

void WorkerRegistry::pushRetry(WorkerEntry& entry) {
    if (mRetries.empty()) mNextRetry = tick::after(kRetryMs);
    if (entry.waitsToWrite) return;
    mRetries.push_back(entry.registration());
    entry.waitsToWrite = true;
}

// All of them: those that were added later come a little early.
void WorkerRegistry::takeDueRetries() {
    mNextRetry = INT64_MAX;
    for (const Registration& retry : mRetries) {
        WorkerEntry* const entry = entryOf(retry);
        if (entry == nullptr) continue;
        entry->waitsToWrite = false;
        pushWriteRequest(*entry);
    }
    mRetries.clear();
}

// Whether a write finds out by itself, without waiting, what the descriptor takes. One of a device
// of the application's is asked for its mode each time, which the application may have changed.
bool WorkerRegistry::canWriteNow(const WorkerEntry& entry) {
    if (!entry.worker->hasWrittingData()) return true;
    return mDescriptors.canArmWrite(entry) &&
           (entry.worker->drainsWithoutWaiting() ||
            (fcntl(entry.worker->getFd(), F_GETFL) & O_NONBLOCK) != 0);
}

}  // namespace vyn
