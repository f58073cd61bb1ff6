#include "connector/connector_linux.h"

#include <vyn/logging.h>
#include <vyn/worker.h>

#include <cerrno>

// The connector's operations; the loop itself is in connector_linux_loop.cpp.

namespace vyn {

namespace {

constexpr int kMarks = 50;  // how far back the loading figure looks

}  // namespace

LinuxConnector::LinuxConnector(Connector* connector) : mConnector(connector), mDiagnoser(kMarks) {
    init();
}

LinuxConnector::~LinuxConnector() {
    const int cleared = mTimers.clear();
    VYN_LOG_DEBUG << cleared << " timers cleared.";
}

void LinuxConnector::attach(Connector::Executor* executor) {
    if (!mExecutors.insert(executor).second) {
        VYN_LOG_FATAL << "An executor should not be attached twice! " << executor;
        return;
    }
    executor->mConnector = mConnector;
}

void LinuxConnector::detach(Connector::Executor* executor) {
    if (mExecutors.erase(executor) == 0) VYN_LOG_FATAL << "No such executor! " << executor;
}

void LinuxConnector::addWorkerLocked(Worker* worker, Connector::Executor* executor) {
    const WorkerRegistry::Added added = mWorkers.add(worker, mConnector, executor);
    // Closed descriptors are refused as a matter of course; others had better be known.
    if (added.refusedFd >= 0 && added.error != EBADF) {
        VYN_LOG_WARNING << logging::ErrnoText{added.error} << "can not watch fd " << added.refusedFd
                        << ", nothing will be read from it. " << worker;
    }
    if (added.ticket == 0) return;
    worker->onReady();
    mWorkers.setReady(worker, added.ticket);
}

void LinuxConnector::removeWorkerLocked(Worker* worker) { mWorkers.remove(worker); }

// Release, and acquire in run(): when run() has returned, the thread that stopped it is done with
// this connector.
void LinuxConnector::stop() { mRunning.store(false, std::memory_order_release); }

void LinuxConnector::dump(std::ostream& os) {
    std::vector<Worker*> workers;
    mWorkers.snapshot(workers);
    os << "LinuxConnector: {Pointer: " << static_cast<const void*>(this)
       << ", Executors: " << mExecutors.size() << ", Loading: " << getLoading() << ", Workers: [";
    const char* separator = "";
    for (Worker* worker : workers) {
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

void LinuxConnector::sendMessageDelayed(Connector::Executor* executor, const Message& message,
                                        long delayMs) {
    mMessages.post(executor, message, delayMs);
}

void LinuxConnector::queueWrite() { mTickFd.wake(); }

void LinuxConnector::queueWriteOf(Worker* worker) { mWorkers.requestWrite(worker); }

bool LinuxConnector::queueOverflow(Worker* worker) {
    if (!mTickFd.hasLoop()) return false;
    mWorkers.requestOverflow(worker);
    return true;
}

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

void LinuxConnector::checkHeartbit() {
    const uint32_t removals = mWorkers.removals();
    mWorkers.snapshot(mHeartbitSnapshot);
    for (Worker* worker : mHeartbitSnapshot) {
        if (mWorkers.removals() != removals && !mWorkers.contains(worker)) continue;
        if (worker->isValid()) worker->checkHeartbit();
    }
}

void LinuxConnector::init() {
    addTimer(&mHeartbitTimer, HeartbitTimer::kIntervalMs, this);
    if (!mEpoll.isOpen()) {
        VYN_LOG_FATAL << "mEpollFd < 0 !!!!";
        return;
    }
    if (mTickFd.readEnd() < 0) {
        VYN_LOG_FATAL << "mTickFd[0] < 0 !!!!";
        return;
    }
    VYN_LOG_DEBUG << "addFdToFdSet, fd:" << mTickFd.readEnd() << ", tickpipe";
    mEpoll.add({mTickFd.readEnd(), 0});
}

std::ostream& operator<<(std::ostream& os, LinuxConnector* connector) {
    connector->dump(os);
    return os;
}

std::ostream& operator<<(std::ostream& os, LinuxConnector& connector) { return os << &connector; }

}  // namespace vyn
