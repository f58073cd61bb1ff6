#include "connector/worker_registry.h"

#include <fcntl.h>
#include <vyn/worker.h>

#include <cerrno>

namespace vyn {

WorkerRegistry::Added WorkerRegistry::add(Worker* worker, Connector* connector,
                                          Connector::Executor* executor) {
    AutoLock lock(mLock);
    Added added;
    const bool isNew = mEntries.count(worker) == 0;
    Entry& entry = isNew ? enlist(worker) : mEntries[worker];
    if (isNew) added.ticket = entry.ticket;
    worker->attach(connector, executor);
    registerDescriptors(entry, added);
    pushWriteRequest(entry);  // for writes that were queued before
    return added;
}

void WorkerRegistry::setReady(Worker* worker, uint64_t ticket) {
    AutoLock lock(mLock);
    const auto found = mEntries.find(worker);
    if (found == mEntries.end() || found->second.ticket != ticket) return;
    found->second.ready = true;
    mWakePipe.wake();
}

void WorkerRegistry::remove(Worker* worker) {
    AutoLock lock(mLock);
    const auto found = mEntries.find(worker);
    if (found == mEntries.end()) return;
    Entry& entry = found->second;
    while (entry.firstFd >= 0) {
        mEpoll.remove(entry.firstFd);
        unchain(entry.firstFd);
    }
    delist(entry);
    mEntries.erase(found);
    mRemovals.fetch_add(1, std::memory_order_release);
}

bool WorkerRegistry::contains(Worker* worker) {
    AutoLock lock(mLock);
    return mEntries.count(worker) != 0;
}

void WorkerRegistry::snapshot(std::vector<Worker*>& out) {
    out.clear();
    AutoLock lock(mLock);
    for (Entry* entry = mFirst; entry != nullptr; entry = entry->next) {
        if (entry->ready) out.push_back(entry->worker);
    }
}

WorkerRegistry::Owner WorkerRegistry::find(EpollToken token, Worker*& worker) {
    AutoLock lock(mLock);
    const Slot* slot = watchedSlot(token);
    if (slot == nullptr) return Owner::kGone;
    if (!slot->owner->ready) return Owner::kNotReady;
    if (!slot->owner->worker->isValid()) return Owner::kNotValid;
    worker = slot->owner->worker;
    return Owner::kValid;
}

void WorkerRegistry::stopWatching(EpollToken token) {
    AutoLock lock(mLock);
    Slot* slot = watchedSlot(token);
    if (slot == nullptr) return;
    mEpoll.remove(token.fd);
    slot->watched = false;
    slot->writeArmed = false;
}

void WorkerRegistry::reopenEpoll() {
    AutoLock lock(mLock);
    if (!mEpoll.reopen()) return;
    for (size_t fd = 0; fd < mSlots.size(); ++fd) {
        Slot& slot = mSlots[fd];
        if (!slot.watched) continue;
        const EpollToken token{static_cast<int>(fd), slot.generation};
        slot.watched = mEpoll.add(token) == 0;
        if (slot.writeArmed) mEpoll.modify(token, true);
    }
}

void WorkerRegistry::requestWrite(Worker* worker) {
    AutoLock lock(mLock);
    const auto found = mEntries.find(worker);
    if (found == mEntries.end()) return;
    pushWriteRequest(found->second);
    mWakePipe.wake();
}

void WorkerRegistry::armRequestedWrites(std::vector<Worker*>& direct) {
    direct.clear();
    if (!mHasWriteRequests.load(std::memory_order_acquire)) return;
    AutoLock lock(mLock);
    mHasWriteRequests.store(false, std::memory_order_relaxed);
    for (Worker* worker : mWriteRequests) {
        const auto found = mEntries.find(worker);
        if (found == mEntries.end()) continue;
        found->second.writeRequested = false;
        // One that is not valid would keep the loop awake without ever writing.
        if (!worker->isValid() || !worker->hasWrittingData()) continue;
        if (canWriteNow(found->second) || !armWrite(found->second)) direct.push_back(worker);
    }
    mWriteRequests.clear();
}

void WorkerRegistry::awaitWritable(Worker* worker) {
    AutoLock lock(mLock);
    const auto found = mEntries.find(worker);
    if (found != mEntries.end() && !armWrite(found->second)) pushWriteRequest(found->second);
}

void WorkerRegistry::disarmWrite(EpollToken token) {
    AutoLock lock(mLock);
    Slot* slot = watchedSlot(token);
    if (slot == nullptr || !slot->writeArmed) return;
    mEpoll.modify(token, false);
    slot->writeArmed = false;
}

void WorkerRegistry::requestOverflow(Worker* worker) {
    AutoLock lock(mLock);
    if (mEntries.count(worker) == 0) return;
    mOverflowRequests.push_back(worker);
    mHasOverflowRequests.store(true, std::memory_order_release);
    mWakePipe.wake();
}

void WorkerRegistry::takeOverflows(std::vector<Worker*>& out) {
    out.clear();
    if (!mHasOverflowRequests.load(std::memory_order_acquire)) return;
    AutoLock lock(mLock);
    mHasOverflowRequests.store(false, std::memory_order_relaxed);
    for (Worker* worker : mOverflowRequests) {
        if (mEntries.count(worker) != 0) out.push_back(worker);
    }
    mOverflowRequests.clear();
}

WorkerRegistry::Entry& WorkerRegistry::enlist(Worker* worker) {
    Entry& entry = mEntries[worker];
    entry.worker = worker;
    entry.ticket = ++mLastTicket;
    entry.previous = mLast;
    (mLast == nullptr ? mFirst : mLast->next) = &entry;
    mLast = &entry;
    return entry;
}

void WorkerRegistry::delist(Entry& entry) {
    (entry.previous == nullptr ? mFirst : entry.previous->next) = entry.next;
    (entry.next == nullptr ? mLast : entry.next->previous) = entry.previous;
}

void WorkerRegistry::registerDescriptors(Entry& entry, Added& added) {
    if (!entry.worker->isValid()) return;
    const int fd = entry.worker->getFd();
    if (fd >= 0) {
        registerDescriptor(entry, fd, added);
        return;
    }
    for (const int oneOfMany : entry.worker->getFds()) {
        if (oneOfMany >= 0) registerDescriptor(entry, oneOfMany, added);
    }
}

void WorkerRegistry::registerDescriptor(Entry& entry, int fd, Added& added) {
    const bool isOwn = owns(entry, fd);
    const EpollToken token{fd, isOwn ? slotOf(fd).generation : nextGeneration()};
    int error = mEpoll.add(token);
    if (error == EEXIST) {
        if (isOwn && slotOf(fd).watched) return;  // as it is, with its interest in writing
        mEpoll.modify(token, false);
        error = 0;
    }
    if (error != 0) {
        added.refusedFd = fd;
        added.error = error;
        return;
    }
    // The number may still be on the account of a worker whose device has closed it.
    if (slotOf(fd).owner != nullptr) unchain(fd);
    const bool readOnly = (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY;
    slotOf(fd) = {&entry, token.generation, entry.firstFd, true, false, readOnly};
    entry.firstFd = fd;
}

bool WorkerRegistry::owns(const Entry& entry, int fd) const {
    return static_cast<size_t>(fd) < mSlots.size() &&
           mSlots[static_cast<size_t>(fd)].owner == &entry;
}

uint32_t WorkerRegistry::nextGeneration() {
    if (++mLastGeneration == 0) ++mLastGeneration;  // 0 is the wake pipe's
    return mLastGeneration;
}

// Takes a descriptor out of its owner's chain and forgets it.
void WorkerRegistry::unchain(int fd) {
    Slot& slot = slotOf(fd);
    int* link = &slot.owner->firstFd;
    while (*link != fd) link = &slotOf(*link).nextFd;
    *link = slot.nextFd;
    slot = Slot();
}

void WorkerRegistry::pushWriteRequest(Entry& entry) {
    if (entry.writeRequested) return;
    entry.writeRequested = true;
    mWriteRequests.push_back(entry.worker);
    mHasWriteRequests.store(true, std::memory_order_release);
}

// Whether a write finds out by itself, without waiting, what the descriptor takes. Asked each time,
// as the application may have changed the descriptor's mode.
bool WorkerRegistry::canWriteNow(const Entry& entry) {
    const int fd = entry.worker->getFd();
    if (fd < 0 || !owns(entry, fd)) return false;
    const Slot& slot = slotOf(fd);
    return slot.watched && !slot.writeArmed && (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

// False when no descriptor of the worker's would ever be reported as writable.
bool WorkerRegistry::armWrite(Entry& entry) {
    const int fd = entry.worker->getFd();
    if (fd < 0) return !entry.worker->getFds().empty();
    if (!owns(entry, fd)) return true;
    Slot& slot = slotOf(fd);
    if (slot.readOnly) return false;
    if (!slot.watched || slot.writeArmed) return true;
    mEpoll.modify({fd, slot.generation}, true);
    slot.writeArmed = true;
    return true;
}

WorkerRegistry::Slot& WorkerRegistry::slotOf(int fd) {
    const auto index = static_cast<size_t>(fd);
    if (index >= mSlots.size()) mSlots.resize(index + 1);
    return mSlots[index];
}

// The descriptor's slot, if the token is of its present registration and epoll watches it.
WorkerRegistry::Slot* WorkerRegistry::watchedSlot(EpollToken token) {
    const auto index = static_cast<size_t>(token.fd);
    if (index >= mSlots.size()) return nullptr;
    Slot& slot = mSlots[index];
    return slot.watched && slot.generation == token.generation ? &slot : nullptr;
}

}  // namespace vyn
