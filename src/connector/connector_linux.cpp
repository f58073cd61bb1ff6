// SPDX-License-Identifier: Apache-2.0

#include "connector/connector_linux.h"

#include <unistd.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "connector/periodic_function.h"

// The connector's operations; the loop itself is in connector_linux_loop.cpp.

namespace vyn {

namespace {

// Tells ids of every() from those of post().
constexpr uint64_t kPeriodic = uint64_t{1} << 63;
constexpr size_t kServedAnyway = 16;
constexpr int kMarks = 50;  // how far back the loading figure looks

}  // namespace

LinuxConnector::LinuxConnector(Connector* connector)
    : mConnector(connector), mProcess(getpid()), mDiagnoser(kMarks) {
    // So many are served in each turn, even without memory for more.
    mOverflowed.reserve(kServedAnyway);
    mDirectWriters.reserve(kServedAnyway);
    init();
}

LinuxConnector::~LinuxConnector() {
    const int cleared = mTimers.clear();
    VYN_LOG_DEBUG << cleared << " timers cleared.";
    mMessages.clear();  // while the destructors of functions find everything in its place
}

void LinuxConnector::attach(Connector::Executor* executor) {
    if (!mExecutors.insert(executor).second) {
        VYN_LOG_FATAL << "An executor should not be attached twice! " << executor;
        return;
    }
    __atomic_store_n(&executor->mConnector, mConnector, __ATOMIC_RELEASE);
}

void LinuxConnector::detach(Connector::Executor* executor) {
    if (mExecutors.erase(executor) == 0) VYN_LOG_FATAL << "No such executor! " << executor;
}

void LinuxConnector::addWorkerLocked(Worker* worker, Connector::Executor* executor) {
    if (isOfAnotherProcess()) return;
    const WorkerRegistry::Added added = mWorkers.add(worker, mConnector, executor);
    if (added.ticket == 0) {
        onRefused(added.refusal, {worker, ticketOf(worker)});
        return;
    }
    const Registration registration{worker, added.ticket};
    WorkerRegistry::Readied readied;
    try {
        worker->goOnLeaving();
        worker->onReady();
        readied = mWorkers.setReady(registration);
    } catch (const std::bad_alloc&) {
        if (mWorkers.holds(registration)) mWorkers.remove(worker);
        throw;
    }
    onRefused(readied.refusal, registration);
    if (readied.hasOverflowed) worker->onWriteQueueOverflow();
}

void LinuxConnector::removeWorkerLocked(Worker* worker) {
    if (!isOfAnotherProcess()) mWorkers.remove(worker);
}

// Release, and acquire in run(): when run() has returned, the thread that stopped it is done with
// this connector.
void LinuxConnector::stop() { mRunning.store(false, std::memory_order_release); }

void LinuxConnector::requestStop(int flushMs) {
    const WakePipe::Waking waking(mTickFd);
    mStopRequest.store(std::max(flushMs, 0), std::memory_order_release);
    mTickFd.wake();
}

void LinuxConnector::dump(std::ostream& os) {
    std::vector<Registration> workers;
    mWorkers.listAll(workers);
    os << "LinuxConnector: {Pointer: " << static_cast<const void*>(this)
       << ", Executors: " << mExecutors.size() << ", Loading: " << getLoading() << ", Workers: [";
    const char* separator = "";
    for (const auto& [worker, ticket] : workers) {
        os << separator << worker->getClassName() << "(" << static_cast<const void*>(worker) << ")";
        separator = ", ";
    }
    os << "]}";
}

int LinuxConnector::addTimer(Timer* timer, long intervalMs, void* arg) {
    return mTimers.add(timer, intervalMs, arg);
}

void LinuxConnector::removeTimer(int id) { mTimers.remove(id); }

void LinuxConnector::resetTimer(int id) { mTimers.reset(id); }

void LinuxConnector::setInterval(int id, long intervalMs) { mTimers.setInterval(id, intervalMs); }

void LinuxConnector::setFairness(int turns) {
    mFairness.store(std::max(turns, 0), std::memory_order_relaxed);
}

void LinuxConnector::sendMessageDelayed(Connector::Executor* executor, const Message& message,
                                        long delayMs) {
    mMessages.post(executor, message, delayMs);
}

uint64_t LinuxConnector::post(std::function<void()> function, long delayMs) {
    return mMessages.post(std::move(function), delayMs);
}

uint64_t LinuxConnector::every(long ms, std::function<void()> function) {
    auto periodic = std::make_unique<PeriodicFunction>(std::move(function));
    const int timer = addTimer(periodic.get(), ms, nullptr);
    static_cast<void>(periodic.release());  // deletes itself when it is removed
    return kPeriodic | static_cast<uint32_t>(timer);
}

void LinuxConnector::cancel(uint64_t id) {
    if ((id & kPeriodic) != 0) {
        removeTimer(static_cast<int>(id & ~kPeriodic));
    } else {
        mMessages.cancel(id);
    }
}

void LinuxConnector::removeMessages(Connector::Executor* executor, const int* what) {
    mMessages.remove(executor, what);
}

void LinuxConnector::setDropListener(std::function<void(const Message&)> listener) {
    mMessages.setDropListener(std::move(listener));
}

void LinuxConnector::queueWrite() { mTickFd.wake(); }

void LinuxConnector::queueWriteOf(Worker* worker) { mWorkers.requestWrite(worker); }

bool LinuxConnector::queueOverflow(Worker* worker) { return mWorkers.requestOverflow(worker); }

void LinuxConnector::updateDescriptorsOf(Worker* worker) {
    if (!isOfAnotherProcess()) onRefused(mWorkers.update(worker), {worker, ticketOf(worker)});
}

void LinuxConnector::restDescriptorsOf(Worker* worker, long ms) {
    if (isOfAnotherProcess()) return;
    const Registration resting{worker, mWorkers.rest(worker)};
    if (resting.ticket != 0)
        sendMessageDelayed(nullptr, mReminder.messageFor(Reminder::kRest, resting), ms);
}

void LinuxConnector::endRest(const Registration& rested) {
    if (mWorkers.holds(rested)) updateReadingOf(rested.worker);
}

void LinuxConnector::endLastWords(const Registration& speaker) {
    if (mWorkers.holds(speaker)) speaker.worker->onLastWordsTimeout();
}

void LinuxConnector::updateReadingOf(Worker* worker) {
    if (isOfAnotherProcess()) return;
    onRefused(mWorkers.updateReading(worker), {worker, ticketOf(worker)});
}

void LinuxConnector::remindOf(Worker* worker, int delayMs) {
    const Registration registration{worker, mWorkers.ticketOf(worker)};
    sendMessageDelayed(nullptr, mReminder.messageFor(Reminder::kLastWords, registration), delayMs);
}

uint64_t LinuxConnector::ticketOf(Worker* worker) { return mWorkers.ticketOf(worker); }

int LinuxConnector::getLoading() {
    const int64_t busy = mDiagnoser.busyPercent();
    const LoadingRange range = mLoadingRange.load(std::memory_order_relaxed);
    return static_cast<int>(range.empty + (int64_t{range.full} - range.empty) * busy / 100);
}

void LinuxConnector::setLoadingRange(int empty, int full) {
    VYN_CHECK_OR_RETURN(empty < full);
    mLoadingRange.store({empty, full}, std::memory_order_relaxed);
    VYN_LOG_DEBUG << "update loading range to [" << empty << ", " << full << "].";
}

LoopFigures LinuxConnector::figures() {
    LoopFigures figures;
    figures.turns = mTurns.value();
    figures.events = mEvents.value();
    figures.messages = mDelivered.value();
    mTimers.report(figures);
    mCallbacks.report(figures);
    figures.waitingMessages = mMessages.waiting();
    figures.workers = mWorkers.size();
    figures.loading = getLoading();
    return figures;
}

void LinuxConnector::setCallbackLimit(int ms) { mCallbacks.setLimit(ms); }

void LinuxConnector::checkHeartbit() { mHeartbitWalk.run(mReadHorizon.time()); }

void LinuxConnector::init() {
    addTimer(&mHeartbitTimer, HeartbitTimer::kIntervalMs, this);
    if (!mEpoll.isOpen()) {
        VYN_LOG_ERROR << logging::ErrnoText{mEpoll.error()}
                      << "epoll_create1 fail. a connector can not work.";
        VYN_LOG_FATAL << "mEpollFd < 0 !!!!";
        return;
    }
    if (mTickFd.readEnd() < 0) {
        VYN_LOG_FATAL << "mTickFd[0] < 0 !!!!";
        return;
    }
    VYN_LOG_DEBUG << "addFdToFdSet, fd:" << mTickFd.readEnd() << ", tickpipe";
    mendWakePipe();
}

// A forked child shares the epoll set and the wake pipe with its parent, and would take descriptors
// and wake-ups away from it. Asked before any lock is taken, as the child may find it held for
// ever.
bool LinuxConnector::isOfAnotherProcess() const {
    const pid_t caller = getpid();
    if (caller == mProcess) return false;
    VYN_LOG_ERROR << "a loop belongs to the process that made it, " << mProcess
                  << ". nothing is done for its child " << caller << ".";
    return true;
}

std::ostream& operator<<(std::ostream& os, LinuxConnector* connector) {
    connector->dump(os);
    return os;
}

std::ostream& operator<<(std::ostream& os, LinuxConnector& connector) { return os << &connector; }

}  // namespace vyn
