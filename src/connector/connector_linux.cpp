#include "connector/connector_linux.h"

#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>

#include "common/tick.h"

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
    if (mWorkers.add(worker, mConnector, executor)) worker->onReady();
}

void LinuxConnector::removeWorkerLocked(Worker* worker) {
    if (mWorkers.remove(worker)) mWorkerRemoved = true;
}

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

void LinuxConnector::queueDisconnect(Worker* worker) { mWorkers.requestDisconnect(worker); }

bool LinuxConnector::isRunningElsewhere() const { return mTickFd.isLoopElsewhere(); }

int LinuxConnector::getLoading() {
    const int busy = mDiagnoser.busyPercent();
    const int empty = mLoadingEmpty.load(std::memory_order_relaxed);
    const int full = mLoadingFull.load(std::memory_order_relaxed);
    return empty + (full - empty) * busy / 100;
}

void LinuxConnector::setLoadingRange(int empty, int full) {
    VYN_CHECK_OR_RETURN(empty < full);
    mLoadingEmpty.store(empty, std::memory_order_relaxed);
    mLoadingFull.store(full, std::memory_order_relaxed);
    VYN_LOG_DEBUG << "update loading range to [" << empty << ", " << full << "].";
}

void LinuxConnector::checkHeartbit() {
    mWorkers.snapshot(mHeartbitSnapshot);
    mWorkerRemoved = false;
    for (Worker* worker : mHeartbitSnapshot) {
        if (mWorkerRemoved && !mWorkers.contains(worker)) continue;
        if (worker->isValid()) worker->checkHeartbit();
    }
}

void LinuxConnector::init() {
    addTimer(&mHeartbitTimer, HeartbitTimer::kIntervalMs, this);
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
