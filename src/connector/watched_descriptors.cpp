// SPDX-License-Identifier: Apache-2.0

#include "connector/watched_descriptors.h"

#include <fcntl.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>

namespace vyn {

namespace {

constexpr size_t kSpareSlots = 16;

// The errno of a number that names nothing any more, or not what was registered under it.
bool tellsOfAnEnd(int error) { return error == ENOENT || error == EBADF; }

}  // namespace

WatchedDescriptors::Named::Named(Worker& worker) : mOne(worker.getFd()) {
    if (mOne < 0) mSeveral = worker.getFds();
}

bool WatchedDescriptors::Named::has(int fd) const { return std::find(begin(), end(), fd) != end(); }

WatchedDescriptors::Refusal WatchedDescriptors::update(WorkerEntry& entry) {
    Refusal refusal;
    if (!entry.worker->isValid()) return refusal;
    const Named named(*entry.worker);
    forgetUnnamed(entry, named);
    for (const int fd : named) {
        const int error = fd >= 0 ? watch(entry, fd) : 0;
        if (error != 0) refusal = {fd, error};
    }
    entry.isPlain = refusal.error == EPERM;
    return refusal;
}

WatchedDescriptors::Refusal WatchedDescriptors::updateReading(WorkerEntry& entry) {
    const uint32_t wanted = readInterest(entry);
    Refusal refusal = update(entry);  // which brings back what was suspended
    for (int fd = entry.firstFd; fd >= 0; fd = slotOf(fd).nextFd) {
        const int error = setInterest(fd, (slotOf(fd).interest & ~EPOLLIN) | wanted);
        if (error != 0 && !tellsOfAnEnd(error)) refusal = {fd, error};
    }
    return refusal;
}

void WatchedDescriptors::forget(WorkerEntry& entry) { forgetUnnamed(entry, Named()); }

WorkerEntry* WatchedDescriptors::ownerOf(EpollToken token) {
    const Slot* slot = watchedSlot(token);
    return slot == nullptr ? nullptr : slot->owner;
}

void WatchedDescriptors::suspend(EpollToken token) {
    Slot* slot = watchedSlot(token);
    if (slot == nullptr) return;
    mEpoll.remove(token.fd);
    slot->watched = false;
    countChange();
}

bool WatchedDescriptors::canArmWrite(const WorkerEntry& entry) const {
    const int fd = entry.worker->getFd();
    if (fd < 0 || !owns(entry, fd)) return false;
    const Slot& slot = mSlots[static_cast<size_t>(fd)];
    return slot.watched && (slot.interest & EPOLLOUT) == 0;
}

bool WatchedDescriptors::isSuspended(const WorkerEntry& entry) const {
    const int fd = entry.worker->getFd();
    return fd >= 0 && owns(entry, fd) && !mSlots[static_cast<size_t>(fd)].watched;
}

WatchedDescriptors::Armed WatchedDescriptors::armWrite(WorkerEntry& entry) {
    const int fd = entry.worker->getFd();
    if (fd < 0) return entry.worker->getFds().empty() ? Armed::kNever : Armed::kYes;
    if (!owns(entry, fd)) return entry.isPlain ? Armed::kNever : Armed::kYes;
    if (slotOf(fd).readOnly) return Armed::kNever;
    int error = setInterest(fd, slotOf(fd).interest | EPOLLOUT);
    // Another descriptor has taken the number: the device's next one, since it names it.
    if (error == ENOENT && watch(entry, fd) == 0)
        error = setInterest(fd, readInterest(entry) | EPOLLOUT);
    if (error == 0 || tellsOfAnEnd(error)) return Armed::kYes;
    errno = error;
    return Armed::kLater;
}

bool WatchedDescriptors::disarmWrite(EpollToken token) {
    const Slot* slot = watchedSlot(token);
    const int error = slot == nullptr ? 0 : setInterest(token.fd, slot->interest & ~EPOLLOUT);
    errno = error;
    return error == 0 || tellsOfAnEnd(error);
}

int WatchedDescriptors::copyTo(Epoll& other, bool isLost) {
    for (size_t i = 0; i < mSlots.size(); ++i) {
        Slot& slot = mSlots[i];
        if (!slot.watched) continue;
        const int fd = static_cast<int>(i);
        slot.watched = isStillThere(fd, slot, isLost);
        if (!slot.watched) countChange();
        if (!slot.watched) continue;
        const int error = other.add({fd, slot.generation}, slot.interest);
        if (error != 0) return error;
    }
    return 0;
}

uint32_t WatchedDescriptors::readInterest(const WorkerEntry& entry) {
    return entry.worker->isReading() ? EPOLLIN : 0u;
}

// Returns 0, or the errno of a refusal.
int WatchedDescriptors::watch(WorkerEntry& entry, int fd) {
    Slot& slot = slotOf(fd);  // here, so that there is memory for it before the kernel knows
    const bool known = slot.owner == &entry && slot.watched;
    const EpollToken token{fd, nextGeneration()};
    const uint32_t interest = readInterest(entry);
    int error = mEpoll.add(token, interest);
    if (error == EEXIST && known) return 0;  // as it is, with its interest in writing
    if (error == EEXIST || (error != 0 && known)) {
        const int second = mEpoll.modify(token, interest);
        if (error == EEXIST || !tellsOfAnEnd(second)) error = second;
    }
    if (error != 0) {
        if (slot.owner == &entry) unchain(fd);
        return error;
    }
    // The number may still be on the account of a worker whose device has closed it.
    if (slot.owner != nullptr) unchain(fd);
    const bool readOnly = (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY;
    slot = {&entry, token.generation, entry.firstFd, static_cast<unsigned char>(interest),
            true,   readOnly};
    entry.firstFd = fd;
    countChange();
    return 0;
}

void WatchedDescriptors::forgetUnnamed(WorkerEntry& entry, const Named& named) {
    for (int fd = entry.firstFd; fd >= 0;) {
        const int next = slotOf(fd).nextFd;
        if (!named.has(fd)) {
            mEpoll.remove(fd);
            unchain(fd);
        }
        fd = next;
    }
}

// Takes a descriptor out of its owner's chain and forgets it.
void WatchedDescriptors::unchain(int fd) {
    Slot& slot = slotOf(fd);
    int* link = &slot.owner->firstFd;
    while (*link != fd) link = &slotOf(*link).nextFd;
    *link = slot.nextFd;
    slot = Slot();
    countChange();
}

// Epoll knows what is open under a number from what was when it was added.
bool WatchedDescriptors::isStillThere(int fd, const Slot& slot, bool isLost) {
    if (isLost) return Named(*slot.owner->worker).has(fd);
    return !tellsOfAnEnd(mEpoll.modify({fd, slot.generation}, slot.interest));
}

// Returns 0, or the errno of a refusal.
int WatchedDescriptors::setInterest(int fd, uint32_t interest) {
    Slot& slot = slotOf(fd);
    if (!slot.watched || slot.interest == interest) return 0;
    const int error = mEpoll.modify({fd, slot.generation}, interest);
    if (error == 0) slot.interest = static_cast<unsigned char>(interest);
    if (tellsOfAnEnd(error)) {
        slot.watched = false;
        countChange();
    }
    return error;
}

bool WatchedDescriptors::owns(const WorkerEntry& entry, int fd) const {
    const auto index = static_cast<size_t>(fd);
    return index < mSlots.size() && mSlots[index].owner == &entry;
}

uint32_t WatchedDescriptors::nextGeneration() {
    if (++mLastGeneration == 0) ++mLastGeneration;  // 0 is the wake pipe's
    return mLastGeneration;
}

WatchedDescriptors::Slot& WatchedDescriptors::slotOf(int fd) {
    const auto index = static_cast<size_t>(fd);
    // Not twice as many, as there is one for each connection.
    if (index >= mSlots.capacity()) mSlots.reserve(index + index / 8 + kSpareSlots);
    if (index >= mSlots.size()) mSlots.resize(index + 1);
    return mSlots[index];
}

// The descriptor's slot, if the token is of its present registration and epoll watches it.
WatchedDescriptors::Slot* WatchedDescriptors::watchedSlot(EpollToken token) {
    const auto index = static_cast<size_t>(token.fd);
    if (index >= mSlots.size()) return nullptr;
    Slot& slot = mSlots[index];
    return slot.watched && slot.generation == token.generation ? &slot : nullptr;
}

}  // namespace vyn
