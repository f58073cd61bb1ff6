// SPDX-License-Identifier: Apache-2.0

#include "connector/worker_registry.h"

#include <vyn/device.h>
#include <vyn/parser.h>
#include <vyn/socket_base.h>
#include <vyn/worker.h>

#include <algorithm>
#include <new>

#include "connector/fetch_ahead.h"

// Workers and their descriptors; see worker_registry_requests.cpp for what is asked for them.

namespace vyn {

namespace {

void sortByAddition(std::vector<Registration>& registrations) {
    std::sort(registrations.begin(), registrations.end(),
              [](const auto& one, const auto& other) { return one.ticket < other.ticket; });
}

}  // namespace

WorkerRegistry::Added WorkerRegistry::add(Worker* worker, Connector* connector,
                                          Connector::Executor* executor) {
    AutoLock lock(mLock);
    Added added;
    WorkerEntry* entry = mEntries.find(worker);
    if (entry == nullptr) {
        entry = &mEntries.add(worker);
        added.ticket = entry->ticket = ++mLastTicket;
    }
    worker->attach(connector, executor);
    try {
        added.refusal = mDescriptors.update(*entry);
    } catch (const std::bad_alloc&) {
        if (added.ticket != 0) drop(*entry);
        throw;
    }
    pushWriteRequest(*entry);  // for writes that were queued before
    return added;
}

WorkerRegistry::Readied WorkerRegistry::setReady(const Registration& registration) {
    AutoLock lock(mLock);
    Readied readied;
    WorkerEntry* const entry = entryOf(registration);
    if (entry == nullptr) return readied;
    entry->ready = true;
    mArrivals.fetch_add(1, std::memory_order_release);
    readied.refusal = mDescriptors.update(*entry);
    pushWriteRequest(*entry);
    if ((entry->requests & kToReportOverflow) != 0) {
        readied.hasOverflowed = !mServing;
        if (!mServing) setRequests(*entry, entry->requests & ~kToReportOverflow);
        mHasOverflowRequests.store(true, std::memory_order_release);
    }
    mWakePipe.wake();
    return readied;
}

WorkerRegistry::Refusal WorkerRegistry::update(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = mEntries.find(worker);
    if (entry == nullptr) return {};
    const Refusal refusal = mDescriptors.update(*entry);
    pushWriteRequest(*entry);
    mWakePipe.wake();
    return refusal;
}

WorkerRegistry::Refusal WorkerRegistry::updateReading(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = mEntries.find(worker);
    if (entry == nullptr) return {};
    const Refusal refusal = mDescriptors.updateReading(*entry);
    pushWriteRequest(*entry);
    mWakePipe.wake();
    return refusal;
}

uint64_t WorkerRegistry::rest(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = mEntries.find(worker);
    if (entry == nullptr) return 0;
    mDescriptors.forget(*entry);
    return entry->ticket;
}

void WorkerRegistry::remove(Worker* worker) {
    AutoLock lock(mLock);
    WorkerEntry* const entry = mEntries.find(worker);
    if (entry != nullptr) drop(*entry);
}

void WorkerRegistry::drop(WorkerEntry& entry) {
    mDescriptors.forget(entry);
    setRequests(entry, 0);
    mEntries.remove(entry);
    mRemovals.fetch_add(1, std::memory_order_release);
}

uint64_t WorkerRegistry::ticketOf(Worker* worker) {
    AutoLock lock(mLock);
    const WorkerEntry* entry = mEntries.find(worker);
    return entry == nullptr ? 0 : entry->ticket;
}

bool WorkerRegistry::holds(const Registration& registration) {
    AutoLock lock(mLock);
    return entryOf(registration) != nullptr;
}

size_t WorkerRegistry::size() {
    AutoLock lock(mLock);
    return mEntries.size();
}

void WorkerRegistry::listAll(std::vector<Registration>& out) {
    out.clear();
    {
        AutoLock lock(mLock);
        out.reserve(mEntries.size());
        for (const WorkerEntry& entry : mEntries.places()) {
            if (entry.worker != nullptr) out.push_back(entry.registration());
        }
    }
    sortByAddition(out);
}

void WorkerRegistry::listReady(std::vector<Registration>& out) {
    out.clear();
    {
        AutoLock lock(mLock);
        out.reserve(mEntries.size());
        for (const WorkerEntry& entry : mEntries.places()) {
            if (entry.ready) out.push_back(entry.registration());
        }
    }
    sortByAddition(out);
}

WorkerRegistry::Owner WorkerRegistry::find(EpollToken token, Worker*& worker) {
    AutoLock lock(mLock);
    const WorkerEntry* owner = mDescriptors.ownerOf(token);
    if (owner == nullptr) return Owner::kGone;
    if (!owner->ready) {
        mDescriptors.suspend(token);
        return Owner::kNotReady;
    }
    if (!owner->worker->isValid()) {
        return (owner->requests & kToReportOverflow) != 0 ? Owner::kEnding : Owner::kNotValid;
    }
    worker = owner->worker;
    return Owner::kValid;
}

void WorkerRegistry::findAll(const epoll_event* events, int count) {
    std::array<const WorkerEntry*, Epoll::kMostEvents> owners;
    AutoLock lock(mLock);
    mChangesBefore = mChanges.load(std::memory_order_relaxed);
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        owners[i] = mDescriptors.ownerOf(EpollToken::of(events[i]));
        fetchAhead(owners[i], sizeof *owners[i]);
    }
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        const WorkerEntry* const owner = owners[i];
        mFound[i] = owner != nullptr && owner->ready ? owner->worker : nullptr;
        fetchAhead(mFound[i], sizeof *mFound[i]);
    }
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        if (mFound[i] == nullptr) continue;
        fetchAhead(mFound[i]->getDevice(), sizeof(BaseDevice) + sizeof(SocketBase));
        fetchAhead(mFound[i]->getParser(), sizeof(Parser));
    }
}

void WorkerRegistry::stopWatching(EpollToken token) {
    AutoLock lock(mLock);
    mDescriptors.suspend(token);
}

void WorkerRegistry::stopWatchingPaused(EpollToken token) {
    AutoLock lock(mLock);
    const WorkerEntry* const owner = mDescriptors.ownerOf(token);
    if (owner != nullptr && owner->worker->isReadingPaused()) mDescriptors.suspend(token);
}

int64_t WorkerRegistry::mostEvents() {
    AutoLock lock(mLock);
    return static_cast<int64_t>(mDescriptors.slots()) + 1;  // the wake pipe's
}

int WorkerRegistry::reopenEpoll(bool isLost) {
    AutoLock lock(mLock);
    Epoll fresh;
    if (!fresh.isOpen()) return fresh.error();
    int error = mWakePipe.addTo(fresh);
    if (error == 0) error = mDescriptors.copyTo(fresh, isLost);
    return error == 0 ? mEpoll.replaceBy(fresh, isLost) : error;
}

WorkerEntry* WorkerRegistry::entryOf(const Registration& registration) {
    WorkerEntry* const entry = mEntries.find(registration.worker);
    return entry != nullptr && entry->ticket == registration.ticket ? entry : nullptr;
}

}  // namespace vyn
