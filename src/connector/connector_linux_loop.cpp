// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>
#include <vyn/message.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "common/tick.h"
#include "connector/connector_linux.h"
#include "connector/event_tick.h"
#include "connector/gather_scope.h"
#include "connector/loop_turn.h"

// The turns of the loop.

namespace vyn {

namespace {

constexpr int64_t kLongestWaitMs = 1000;
// A wait that ends sooner has not waited: there were events already.
constexpr int64_t kAtOnceNs = 2000;

// The calling thread serves the loop until the end of this, also when that is an exception of the
// application's.
class Service {
  public:
    explicit Service(WakePipe& wakePipe) : mWakePipe(wakePipe) { mWakePipe.enterLoop(); }
    ~Service() {
        LoopTurn::endLast();
        mWakePipe.leaveLoop();
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

  private:
    WakePipe& mWakePipe;
};

}  // namespace

void LinuxConnector::run() {
    if (isOfAnotherProcess()) return;
    epoll_event events[Epoll::kMostEvents] = {};
    const Service service(mTickFd);
    mWorkers.beginServing();
    mRunning.store(true, std::memory_order_relaxed);
    mStopBy = INT64_MAX;  // stop() may have come in the middle of a flush
    do {
        runTurn(events);
    } while (mRunning.load(std::memory_order_acquire) && !shallStop());
    mRunning.store(false, std::memory_order_relaxed);
    do {
        disconnectOverflowed();  // in the last turn, or by these callbacks
    } while (!mWorkers.endServing());
}

void LinuxConnector::runTurn(epoll_event* events) {
    LoopTurn::begin();
    if (mWorkers.hasRequests(mNow)) serveRequests();
    const int count = waitForEvents(events);
    mTurns.add(1);
    checkAndWriteData(count, events);
    if (mTimers.fireDue(mNow)) mLookIsFresh = false;
    checkAndHandleMessage();
    dispatch(count, events);
}

// Behind these the loop may wait, though their callbacks may ask for more of the same.
void LinuxConnector::serveRequests() {
    mTickFd.countOwnWakes(true);
    disconnectOverflowed();
    flushRequestedWrites();
    mTickFd.countOwnWakes(false);
}

void LinuxConnector::disconnectOverflowed() {
    mWorkers.takeOverflows(mOverflowed);
    for (const Registration& overflowed : mOverflowed) {
        if (!mWorkers.holds(overflowed)) continue;
        Worker* const worker = overflowed.worker;
        mCallbacks.call("onDisconnected", worker, [worker] { worker->onWriteQueueOverflow(); });
    }
}

void LinuxConnector::flushRequestedWrites() {
    const uint32_t removals = mWorkers.removals();  // first, as other threads remove some, too
    int error = mWorkers.armRequestedWrites(mDirectWriters, mNow);
    for (const Registration& writer : mDirectWriters) {
        if (mWorkers.removals() != removals && !mWorkers.holds(writer)) continue;
        if (!writer.worker->isValid()) continue;
        const Worker::Drained drained = serveWrites(writer.worker);
        if (Worker::isEnd(drained)) continue;
        const int refused = settle(writer, drained);
        if (refused != 0) error = refused;
        reportWritten(writer.worker);
    }
    if (error != 0) onInterestRefused(error);
}

// Sees to what a drain left. Returns as WorkerRegistry::awaitWritable().
int LinuxConnector::settle(const Registration& writer, Worker::Drained drained) {
    if (drained == Worker::Drained::kMore) mWorkers.requestWrite(writer.worker);
    if (drained == Worker::Drained::kAwaitsMoment) mWorkers.retryWrite(writer);
    return drained == Worker::Drained::kAwaitsWritable ? mWorkers.awaitWritable(writer) : 0;
}

// Returns how many events there are. Does not look for any when a timer or a message is due, but
// for the sake of fairness. One look at the clock tells both whether to wait and what is due then.
int LinuxConnector::waitForEvents(epoll_event* events) {
    if (mTickFd.hasFailed()) mendWakePipe();
    if (mMessages.hasImmediate()) {
        mNow = nowIfDue();
        return isFairTurn() ? pollEvents(events) : 0;
    }
    if (mExpectsEvents && !tick::isReached(nextDue())) {
        const int count = pollEvents(events);
        if (count > 0) return count;
    }
    const tick::Instant now = tick::instant();
    mNow = now.milliseconds;
    const int timeout = nextTimerAndMessageTimeout(mNow);
    if (timeout < 1) return isFairTurn() ? pollEvents(events) : 0;
    mTurnsWithoutEvents = 0;
    mDiagnoser.record(false, static_cast<uint64_t>(now.nanoseconds));
    const int count = wait(events, mMessages.beginWait() ? timeout : 0);
    const tick::Instant awake = tick::instant();
    noteAwake(awake);
    mExpectsEvents = count > 1 || (count == 1 && awake.nanoseconds - now.nanoseconds < kAtOnceNs);
    noteWait(now.milliseconds, timeout, count);
    if (count == 0 && mTickFd.isFoundEmpty()) onWakePipeEmpty();
    return count;
}

// In a turn in which something is due: whether it looks at the descriptors, too.
bool LinuxConnector::isFairTurn() {
    const int fairness = mFairness.load(std::memory_order_relaxed);
    if (fairness == 0 || ++mTurnsWithoutEvents < fairness) return false;
    mTurnsWithoutEvents = 0;
    mLastLook = tick::now();  // other turns may not look at the clock at all
    return true;
}

// Looks for events without waiting. That spares the loop a look at the clock, and the kernel, which
// a time-out makes look at it even when there are events, another: worth it where some are likely
// to be there.
int LinuxConnector::pollEvents(epoll_event* events) {
    const int64_t began = mLastLook;  // or later
    const int count = wait(events, 0);
    mExpectsEvents = count > 0;
    if (count == 0) mReadHorizon.onNothing(began);
    if (count <= 0) return count;
    const tick::Instant awake = tick::instant();
    mDiagnoser.record(false, static_cast<uint64_t>(awake.nanoseconds));
    noteAwake(awake);
    noteWait(began, 0, count);
    return count;
}

int LinuxConnector::wait(epoll_event* events, int timeout) {
    const int count = mEpoll.wait(events, timeout);
    if (count < 0 && errno != EINTR) onWaitFailed(errno);
    return count;
}

void LinuxConnector::noteAwake(const tick::Instant& awake) {
    mDiagnoser.record(true, static_cast<uint64_t>(awake.nanoseconds));
    mNow = mLastLook = awake.milliseconds;
    mLookIsFresh = true;
}

// When the next timer, delayed message or retry is due.
int64_t LinuxConnector::nextDue() const {
    return std::min({mTimers.nextExpire(), mMessages.nextDelayed(), mWorkers.nextRetry(), mStopBy});
}

// While messages are due anyway, the clock is only looked at when it is likely to matter, and now
// and then, in case that what tells so is wrong.
int64_t LinuxConnector::nowIfDue() {
    constexpr unsigned kTurnsWithoutLook = 64;
    const bool isToLook = ++mTurnsOfMessages % kTurnsWithoutLook == 0;
    return isToLook || tick::isReached(nextDue()) ? tick::now() : INT64_MIN;
}

// Whether a stop was requested, and all is written or the time for that is over.
bool LinuxConnector::shallStop() {
    if (mStopRequest.load(std::memory_order_relaxed) != kNoRequest) {
        mStopBy = tick::now() + mStopRequest.exchange(kNoRequest, std::memory_order_acq_rel);
    }
    if (mStopBy == INT64_MAX) return false;
    if (tick::now() < mStopBy && mWorkers.hasWrites()) return false;
    mStopBy = INT64_MAX;
    return true;
}

// Milliseconds until something is due; 0 when it is due now.
int LinuxConnector::nextTimerAndMessageTimeout(int64_t now) const {
    const int64_t most = mTickFd.hasFailed() ? kRetryMs : kLongestWaitMs;
    return static_cast<int>(std::clamp<int64_t>(nextDue() - now, 0, most));
}

void LinuxConnector::noteWait(int64_t began, int timeout, int count) {
    if (count == 0) mReadHorizon.onNothing(std::min(began + timeout, mNow));
    if (count > 0 && count < Epoll::kMostEvents) mReadHorizon.onAll(began);
    if (count == Epoll::kMostEvents) {
        mReadHorizon.onSome(began, mWorkers.mostEvents() / Epoll::kMostEvents + 1);
    }
}

void LinuxConnector::checkAndWriteData(int count, const epoll_event* events) {
    if (count > 0) mStaleEvents.beginBatch();
    int error = 0;
    for (int i = 0; i < count; ++i) {
        if ((events[i].events & EPOLLOUT) == 0 || (events[i].events & EPOLLERR) != 0) continue;
        const EpollToken token = EpollToken::of(events[i]);
        Worker* worker = nullptr;
        const WorkerRegistry::Owner owner = mWorkers.find(token, worker);
        if (owner == WorkerRegistry::Owner::kValid) {
            writeOn(token, worker, error);
        } else if (!mWorkers.disarmWrite(token)) {
            error = errno;
        }
        if (events[i].events != EPOLLOUT) continue;  // dispatch() sees to the rest
        note(owner, token);
    }
    if (error == 0) return;
    onInterestRefused(error);
    pause();  // as epoll goes on reporting it
}

// Sets `error` when the kernel refused something.
void LinuxConnector::writeOn(EpollToken token, Worker* worker, int& error) {
    mLookIsFresh = false;
    const Registration writer{worker, mWorkers.ticketOf(worker)};
    const Worker::Drained drained = serveWrites(worker);
    const bool more =
        drained == Worker::Drained::kAwaitsWritable || drained == Worker::Drained::kMore;
    // Its interest would keep the loop awake while that is not what it waits for.
    if (!more && !mWorkers.disarmWrite(token)) error = errno;
    if (Worker::isEnd(drained)) return;
    if (!more) settle(writer, drained);
    reportWritten(worker);
}

Worker::Drained LinuxConnector::serveWrites(Worker* worker) {
    return mCallbacks.call("write", worker, [worker] { return worker->serveWrites(); });
}

void LinuxConnector::reportWritten(Worker* worker) {
    mCallbacks.call("onWritten", worker, [worker] { worker->reportWritten(); });
}

void LinuxConnector::checkAndHandleMessage() {
    const MessageQueue::Delivery posted = mMessages.takeDue(mNow);
    if (posted == nullptr) return;
    mLookIsFresh = false;
    mDelivered.add(1);
    if (posted->isFunction()) {
        Posted::Function* const function = &posted->function();
        mCallbacks.call("function", static_cast<int>(function->id),
                        [function] { function->call(); });
        return;
    }
    const Message* const message = &posted->message();
    mCallbacks.call("onMessage", message, [message] { deliver(*message); });
}

void LinuxConnector::deliver(const Message& message) {
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
    mEvents.add(static_cast<uint64_t>(count));
    mWorkers.findAll(events, count);
    {
        const GatherScope gathering(nullptr);
        const EventTick::Scope look(mNow, mLookIsFresh);
        for (int i = 0; i < count; ++i) {
            dispatch(events[i], mWorkers.foundFor(i));
            EventTick::endFreshness();
        }
    }
    mReadHorizon.onHandled();
    if (mStaleEvents.last()) dropClosedRegistrations();
}

// `worker` is the event's, if that is known.
void LinuxConnector::dispatch(const epoll_event& event, Worker* worker) {
    const bool readable = (event.events & EPOLLIN) != 0;
    const bool hungUp = (event.events & EPOLLHUP) != 0 && !readable;
    if (!hungUp && !readable && (event.events & EPOLLERR) == 0) return;

    const EpollToken token = EpollToken::of(event);
    if (token.fd == mTickFd.readEnd()) {
        mTickFd.onEvent();
        mStaleEvents.addOther();
        return;
    }
    if (worker != nullptr && worker->isValid()) {
        mStaleEvents.addOther();
    } else {
        worker = nullptr;
        const WorkerRegistry::Owner owner = mWorkers.find(token, worker);
        note(owner, token);
        const bool isOwned =
            owner == WorkerRegistry::Owner::kValid || owner == WorkerRegistry::Owner::kNotValid;
        if (!isOwned) return;
    }
    if (worker != nullptr && !worker->isReading()) {
        if ((event.events & (EPOLLHUP | EPOLLERR)) == 0) return stopReadingAgain(worker);
        if (worker->isReadingPaused()) return mWorkers.stopWatchingPaused(token);
    }
    hungUp ? onHangUp(event.events, token, worker) : onReadable(token, worker);
}

void LinuxConnector::note(WorkerRegistry::Owner owner, EpollToken token) {
    if (owner == WorkerRegistry::Owner::kGone) {
        mStaleEvents.add(token);
    } else {
        mStaleEvents.addOther();
    }
}

// What is readable was reported before the worker stopped, unless the kernel has refused to change
// the interest.
void LinuxConnector::stopReadingAgain(Worker* worker) {
    const WorkerRegistry::Refusal refusal = mWorkers.updateReading(worker);
    if (refusal.fd < 0) return;
    onInterestRefused(refusal.error);
    pause();
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
    // Once both have ended their halves, that is how it looks, too.
    const bool isSaid =
        worker->isLeaving() && !worker->hasWrittingData() && (events & EPOLLERR) == 0;
    worker->setDisconnectReason(isSaid ? DisconnectReason::kOwnWish : DisconnectReason::kHangUp);
    mCallbacks.call("onDisconnected", worker, [worker] { worker->onDisconnected(); });
}

void LinuxConnector::onReadable(EpollToken token, Worker* worker) {
    if (worker == nullptr) {
        VYN_LOG_ERROR << "Error check fd = " << token.fd
                      << " is not contains in a valid worker, we del in epoll fds.";
        mWorkers.stopWatching(token);
        return;
    }
    const int fd = token.fd;
    mCallbacks.call("onDataArrival", worker, [worker, fd] { worker->onDataArrival(fd); });
}

}  // namespace vyn
