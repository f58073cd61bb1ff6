#include <vyn/logging.h>
#include <vyn/message.h>
#include <vyn/worker.h>

#include <algorithm>

#include "common/tick.h"
#include "connector/connector_linux.h"

// The turns of the loop.

namespace vyn {

namespace {

constexpr int kEventsPerWait = 20;
constexpr int64_t kLongestWaitMs = 1000;

}  // namespace

void LinuxConnector::run() {
    epoll_event events[kEventsPerWait] = {};
    mTickFd.enterLoop();
    mWorkers.beginServing();
    mRunning.store(true, std::memory_order_relaxed);
    do {
        runTurn(events);
    } while (mRunning.load(std::memory_order_acquire));
    do {
        disconnectOverflowed();  // in the last turn, or by these callbacks
    } while (!mWorkers.endServing());
    mTickFd.leaveLoop();
}

void LinuxConnector::runTurn(epoll_event* events) {
    // Behind these the loop may wait, though their callbacks may ask for more of the same.
    mTickFd.countOwnWakes(true);
    disconnectOverflowed();
    flushRequestedWrites();
    mTickFd.countOwnWakes(false);
    const int count = waitForEvents(events);
    checkAndWriteData(count, events);
    mTimers.fireDue();
    checkAndHandleMessage();
    dispatch(count, events);
}

void LinuxConnector::disconnectOverflowed() {
    mWorkers.takeOverflows(mOverflowed);
    for (const Registration& overflowed : mOverflowed) {
        if (mWorkers.holds(overflowed)) overflowed.worker->onWriteQueueOverflow();
    }
}

void LinuxConnector::flushRequestedWrites() {
    mWorkers.armRequestedWrites(mDirectWriters);
    const uint32_t removals = mWorkers.removals();
    for (const Registration& writer : mDirectWriters) {
        if (mWorkers.removals() != removals && !mWorkers.holds(writer)) continue;
        if (!writer.worker->performWrite()) mWorkers.awaitWritable(writer);
    }
}

// Returns how many events there are. Does not look for any when a timer or a message is due.
int LinuxConnector::waitForEvents(epoll_event* events) {
    if (mMessages.hasImmediate()) return 0;
    const tick::Instant now = tick::instant();
    const int timeout = nextTimerAndMessageTimeout(now.milliseconds);
    if (timeout < 1) return 0;
    mDiagnoser.record(false, static_cast<uint64_t>(now.nanoseconds));
    // A time-out makes the kernel look at its clock, even when there are events. So where the last
    // turn had several, and this one is likely to have some, they are asked for without one first.
    int count = mHadSeveralEvents ? mEpoll.wait(events, kEventsPerWait, 0) : 0;
    if (count == 0) count = mEpoll.wait(events, kEventsPerWait, timeout);
    mHadSeveralEvents = count > 1;
    mDiagnoser.record(true);
    return count;
}

// Milliseconds until the next timer or delayed message is due; 0 when one is due now.
int LinuxConnector::nextTimerAndMessageTimeout(int64_t now) const {
    const int64_t due = std::min(mTimers.nextExpire(), mMessages.nextDelayed());
    return static_cast<int>(std::clamp<int64_t>(due - now, 0, kLongestWaitMs));
}

void LinuxConnector::checkAndWriteData(int count, const epoll_event* events) {
    if (count > 0) mStaleEvents.beginBatch();
    for (int i = 0; i < count; ++i) {
        if ((events[i].events & EPOLLOUT) == 0 || (events[i].events & EPOLLERR) != 0) continue;
        const EpollToken token = EpollToken::of(events[i]);
        Worker* worker = nullptr;
        const WorkerRegistry::Owner owner = mWorkers.find(token, worker);
        const bool done = owner == WorkerRegistry::Owner::kValid && worker->performWrite();
        // One that is not valid will not write, and its interest would keep the loop awake.
        if (done || owner == WorkerRegistry::Owner::kNotValid) mWorkers.disarmWrite(token);
        if (events[i].events != EPOLLOUT) continue;  // dispatch() sees to the rest
        note(owner, token);
    }
}

void LinuxConnector::checkAndHandleMessage() {
    Message message;
    if (!mMessages.takeDue(message)) return;
    if (message.callback != nullptr) {
        message.callback->onMessage(message);
    } else if (message.target != nullptr) {
        message.target->onMessage(message);
    } else {
        VYN_LOG_INFO << "nobody handle message: " << message;
    }
}

void LinuxConnector::dispatch(int count, const epoll_event* events) {
    if (count <= 0) return;
    for (int i = 0; i < count; ++i) dispatch(events[i]);
    if (mStaleEvents.last()) dropClosedRegistrations();
}

void LinuxConnector::dispatch(const epoll_event& event) {
    const bool readable = (event.events & EPOLLIN) != 0;
    const bool hungUp = (event.events & EPOLLHUP) != 0 && !readable;
    if (!hungUp && !readable && (event.events & EPOLLERR) == 0) return;

    const EpollToken token = EpollToken::of(event);
    if (token.fd == mTickFd.readEnd()) {
        mTickFd.drain();
        mStaleEvents.addOther();
        return;
    }
    Worker* worker = nullptr;
    const WorkerRegistry::Owner owner = mWorkers.find(token, worker);
    note(owner, token);
    if (owner == WorkerRegistry::Owner::kGone) return;
    if (owner == WorkerRegistry::Owner::kNotReady) {
        mWorkers.stopWatching(token);  // until it is ready
    } else {
        hungUp ? onHangUp(event.events, token, worker) : onReadable(token, worker);
    }
}

void LinuxConnector::note(WorkerRegistry::Owner owner, EpollToken token) {
    if (owner == WorkerRegistry::Owner::kGone) {
        mStaleEvents.add(token);
    } else {
        mStaleEvents.addOther();
    }
}

void LinuxConnector::onHangUp(uint32_t events, EpollToken token, Worker* worker) {
    if (worker == nullptr) {
        VYN_LOG_INFO << "rod Main runing can not find worker events " << events << " fd "
                     << token.fd;
        mWorkers.stopWatching(token);
        return;
    }
    VYN_LOG_INFO << "rod Main runing disconnect worker events " << events << " fd " << token.fd
                 << " worker " << worker;
    worker->onDisconnected();
}

void LinuxConnector::onReadable(EpollToken token, Worker* worker) {
    if (worker == nullptr) {
        VYN_LOG_ERROR << "Error check fd = " << token.fd
                      << " is not contains in a valid worker, we del in epoll fds.";
        mWorkers.stopWatching(token);
        return;
    }
    worker->onDataArrival(token.fd);
}

// A descriptor that was closed before its worker was removed stays in the epoll set for as long as
// a duplicate of it is open, and no call can take it out any more: only a new set is rid of it.
void LinuxConnector::dropClosedRegistrations() {
    const int error = mWorkers.reopenEpoll(false);
    if (error == 0) {
        VYN_LOG_WARNING << "a closed descriptor is still open elsewhere, epoll set is made anew.";
    }
}

}  // namespace vyn
