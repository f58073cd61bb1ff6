#include "connector/timer_queue.h"

#include <algorithm>

#include "common/tick.h"

namespace vyn {

namespace {

// Ids start again at 0 behind this one.
constexpr int kLastCountedId = 2147483630;

}  // namespace

TimerQueue::~TimerQueue() { clear(); }

int TimerQueue::add(Timer* timer, long intervalMs, void* arg) {
    AutoRecursiveLock lock(mLock);
    auto* wrapper = new TimerWrapper(timer);
    wrapper->setInterval(intervalMs);
    wrapper->schedule();
    wrapper->setId(takeId());
    wrapper->setArg(arg);
    wrapper->mSequence = mNextSequence++;
    mHeap.push(wrapper);
    mById.emplace(wrapper->getId(), wrapper);
    publishNextExpire();
    mWakePipe.wake();
    return wrapper->getId();
}

void TimerQueue::remove(int id) {
    AutoRecursiveLock lock(mLock);
    // An id that came round may belong to several timers. Each is unlinked before its callback,
    // which may use this queue; looking the id up again keeps that safe.
    for (auto found = mById.find(id); found != mById.end(); found = mById.find(id)) {
        TimerWrapper* timer = found->second;
        unlink(found);
        timer->onRemove();
        discard(timer);
    }
    publishNextExpire();
}

void TimerQueue::reset(int id) {
    AutoRecursiveLock lock(mLock);
    TimerWrapper* oldest = nullptr;
    const auto range = mById.equal_range(id);
    for (auto position = range.first; position != range.second; ++position) {
        TimerWrapper* timer = position->second;
        if (oldest == nullptr || timer->mSequence < oldest->mSequence) oldest = timer;
    }
    if (oldest == nullptr) return;
    oldest->schedule();
    mHeap.update(oldest);
    publishNextExpire();
}

int TimerQueue::clear() {
    AutoRecursiveLock lock(mLock);
    std::vector<TimerWrapper*> timers = mHeap.takeAll();
    mById.clear();
    publishNextExpire();
    std::sort(timers.begin(), timers.end(), TimerWrapper::olderFirst);
    for (TimerWrapper* timer : timers) {
        timer->onRemove();
        discard(timer);
    }
    return static_cast<int>(timers.size());
}

void TimerQueue::fireDue() {
    const int64_t now = tick::now();
    if (nextExpire() > now) return;

    AutoRecursiveLock lock(mLock);
    mFiring = true;
    mHeap.collectDue(now, mDue);
    std::sort(mDue.begin(), mDue.end(), TimerWrapper::olderFirst);
    for (TimerWrapper* timer : mDue) {
        // A timer that fired before it may have removed or reset it.
        if (!timer->mRemoved && timer->getLeftTime(now) < 1) fire(timer);
    }
    mDue.clear();
    mFiring = false;
    for (TimerWrapper* timer : mRemoved) delete timer;
    mRemoved.clear();
    publishNextExpire();
}

int TimerQueue::takeId() {
    const int id = mNextId;
    mNextId = id > kLastCountedId ? 0 : id + 1;
    return id;
}

void TimerQueue::fire(TimerWrapper* timer) {
    const bool goOn = timer->trigger();
    if (timer->mRemoved) return;  // it removed itself
    mHeap.update(timer);
    if (goOn) return;

    const auto range = mById.equal_range(timer->getId());
    unlink(std::find_if(range.first, range.second,
                        [timer](const auto& entry) { return entry.second == timer; }));
    timer->onRemove();
    discard(timer);
}

void TimerQueue::unlink(IdMap::iterator position) {
    mHeap.erase(position->second);
    mById.erase(position);
}

// Deletes an unlinked timer, or leaves that to fireDue(), which may be about to look at it.
void TimerQueue::discard(TimerWrapper* timer) {
    timer->mRemoved = true;
    if (mFiring) {
        mRemoved.push_back(timer);
    } else {
        delete timer;
    }
}

void TimerQueue::publishNextExpire() {
    mNextExpire.store(mHeap.empty() ? INT64_MAX : mHeap.top()->expire(), std::memory_order_release);
}

}  // namespace vyn
