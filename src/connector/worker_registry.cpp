#include "connector/worker_registry.h"

#include <vyn/worker.h>

#include <algorithm>

namespace vyn {

bool WorkerRegistry::add(Worker* worker, Connector* connector, Connector::Executor* executor) {
    AutoLock lock(mLock);
    const bool isNew = mEntries.count(worker) == 0;
    Entry& entry = isNew ? enlist(worker) : mEntries[worker];
    worker->attach(connector, executor);
    registerDescriptors(entry);
    pushWriteRequest(entry);  // for writes that were queued before
    if (!isNew || !mWakePipe.isLoopElsewhere()) return isNew;
    pushRequest({worker, &Worker::onReady});
    return false;
}

bool WorkerRegistry::remove(Worker* worker) {
    AutoLock lock(mLock);
    const auto found = mEntries.find(worker);
    if (found == mEntries.end()) return false;
    Entry& entry = found->second;
    while (entry.firstFd >= 0) {
        mEpoll.remove(entry.firstFd);
        unchain(entry.firstFd);
    }
    delist(entry);
    mEntries.erase(found);
    dropRequests(worker);
    return true;
}

bool WorkerRegistry::contains(Worker* worker) {
    AutoLock lock(mLock);
    return mEntries.count(worker) != 0;
}

void WorkerRegistry::snapshot(std::vector<Worker*>& out) {
    out.clear();
    AutoLock lock(mLock);
    for (Entry* entry = mFirst; entry != nullptr; entry = entry->next) out.push_back(entry->worker);
}

WorkerRegistry::Owner WorkerRegistry::find(EpollToken token) {
    AutoLock lock(mLock);
    const Slot* slot = currentSlot(token);
    if (slot == nullptr) return {false, nullptr};
    Worker* worker = slot->owner->worker;
    return {true, worker->isValid() ? worker : nullptr};
}

void WorkerRegistry::stopWatching(EpollToken token) {
    AutoLock lock(mLock);
    Slot* slot = currentSlot(token);
    if (slot == nullptr) return;
    mEpoll.remove(token.fd);
    slot->watched = false;
    slot->writeArmed = false;
}

void WorkerRegistry::reopenEpoll() {
    AutoLock lock(mLock);
    mEpoll.reopen();
    for (size_t fd = 0; fd < mSlots.size(); ++fd) {
        Slot& slot = mSlots[fd];
        if (!slot.watched) continue;
        const EpollToken token{static_cast<int>(fd), slot.generation};
        slot.watched = mEpoll.add(token);
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

void WorkerRegistry::armRequestedWrites() {
    if (!mHasWriteRequests.load(std::memory_order_acquire)) return;
    AutoLock lock(mLock);
    mHasWriteRequests.store(false, std::memory_order_relaxed);
    for (Worker* worker : mWriteRequests) {
        const auto found = mEntries.find(worker);
        if (found == mEntries.end()) continue;
        found->second.writeRequested = false;
        // One that is not valid would keep the loop awake without ever writing.
        if (worker->isValid() && worker->hasWrittingData()) armWrite(found->second);
    }
    mWriteRequests.clear();
}

void WorkerRegistry::disarmWrite(EpollToken token) {
    AutoLock lock(mLock);
    Slot* slot = currentSlot(token);
    if (slot == nullptr || !slot->writeArmed) return;
    mEpoll.modify(token, false);
    slot->writeArmed = false;
}

void WorkerRegistry::requestDisconnect(Worker* worker) {
    AutoLock lock(mLock);
    if (mEntries.count(worker) != 0) pushRequest({worker, &Worker::onDisconnected});
}

WorkerRegistry::Request WorkerRegistry::takeRequest() {
    if (!mHasRequests.load(std::memory_order_acquire)) return {nullptr, nullptr};
    AutoLock lock(mLock);
    if (mRequests.empty()) {
        mHasRequests.store(false, std::memory_order_relaxed);
        return {nullptr, nullptr};
    }
    const Request request = mRequests.front();
    mRequests.pop_front();
    return request;
}

WorkerRegistry::Entry& WorkerRegistry::enlist(Worker* worker) {
    Entry& entry = mEntries[worker];
    entry.worker = worker;
    entry.previous = mLast;
    (mLast == nullptr ? mFirst : mLast->next) = &entry;
    mLast = &entry;
    return entry;
}

void WorkerRegistry::delist(Entry& entry) {
    (entry.previous == nullptr ? mFirst : entry.previous->next) = entry.next;
    (entry.next == nullptr ? mLast : entry.next->previous) = entry.previous;
}

void WorkerRegistry::registerDescriptors(Entry& entry) {
    if (!entry.worker->isValid()) return;
    const int fd = entry.worker->getFd();
    if (fd >= 0) {
        registerDescriptor(entry, fd);
        return;
    }
    for (const int oneOfMany : entry.worker->getFds()) registerDescriptor(entry, oneOfMany);
}

void WorkerRegistry::registerDescriptor(Entry& entry, int fd) {
    if (fd < 0) return;
    if (++mLastGeneration == 0) ++mLastGeneration;  // 0 is the wake pipe's
    if (!mEpoll.add({fd, mLastGeneration})) return;

    // The number may still be on the account of a worker whose device has closed it.
    if (slotOf(fd).owner != nullptr) unchain(fd);
    slotOf(fd) = {&entry, mLastGeneration, entry.firstFd, true, false};
    entry.firstFd = fd;
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

void WorkerRegistry::armWrite(Entry& entry) {
    const int fd = entry.worker->getFd();
    if (fd < 0 || static_cast<size_t>(fd) >= mSlots.size()) return;
    Slot& slot = slotOf(fd);
    if (slot.owner != &entry || !slot.watched || slot.writeArmed) return;
    mEpoll.modify({fd, slot.generation}, true);
    slot.writeArmed = true;
}

void WorkerRegistry::pushRequest(Request request) {
    mRequests.push_back(request);
    mHasRequests.store(true, std::memory_order_release);
    mWakePipe.wake();
}

void WorkerRegistry::dropRequests(Worker* worker) {
    mRequests.erase(std::remove_if(mRequests.begin(), mRequests.end(),
                                   [worker](const Request& r) { return r.worker == worker; }),
                    mRequests.end());
}

WorkerRegistry::Slot& WorkerRegistry::slotOf(int fd) {
    const auto index = static_cast<size_t>(fd);
    if (index >= mSlots.size()) mSlots.resize(index + 1);
    return mSlots[index];
}

WorkerRegistry::Slot* WorkerRegistry::currentSlot(EpollToken token) {
    const auto index = static_cast<size_t>(token.fd);
    if (index >= mSlots.size()) return nullptr;
    Slot& slot = mSlots[index];
    return slot.owner != nullptr && slot.generation == token.generation ? &slot : nullptr;
}

}  // namespace vyn
