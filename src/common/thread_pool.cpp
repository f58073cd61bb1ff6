// SPDX-License-Identifier: Apache-2.0

#include <pthread.h>
#include <sched.h>
#include <vyn/config.h>
#include <vyn/logging.h>
#include <vyn/thread_pool.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

#include "common/task_ids.h"
#include "common/task_queue.h"

namespace vyn {

namespace {

TaskIds gTaskIds;

class FunctionTask : public ThreadPool::Task {
  public:
    explicit FunctionTask(std::function<void()> work) : mWork(std::move(work)) {}
    void run() override { mWork(); }

  private:
    const std::function<void()> mWork;
};

void nameThread() {
    char name[100];
    std::snprintf(name, sizeof name, "ThreadPool-%d", logging::currentThreadId());
    try {
        logging::setThreadName(name);
    } catch (const std::bad_alloc&) {
        // A thread works as well without a name.
    }
}

}  // namespace

ThreadPool::ThreadPool(int tasks) : ThreadPool(tasks, 0) {}

ThreadPool::ThreadPool(int tasks, int mostQueued)
    : mTasks(std::make_unique<TaskQueue>()), mMostQueued(std::max(mostQueued, 0)) {
    VYN_CHECK(tasks > 0);
    startThreads(tasks);
}

ThreadPool::~ThreadPool() {
    drainAndQuit();
    forgetStarts();
    waitForThreads();
    deleteTasks();
}

std::optional<int> ThreadPool::addTask(Task* task) {
    const int id = gTaskIds.next();
    task->mId = id;
    if (mMostQueued == 0 && mTasks->pushUnlessIdle(task)) return id;
    {
        Condition::Holder holder(mCond);
        if (mMostQueued == 0 || mQueued < mMostQueued) {
            mTasks->push(task);
            if (mMostQueued > 0) ++mQueued;
            wakeThread();
            return id;
        }
    }
    delete task;
    return std::nullopt;
}

std::optional<int> ThreadPool::addTask(std::function<void()> work) {
    return addTask(new FunctionTask(std::move(work)));
}

bool ThreadPool::cancel(int id) {
    const Task* task = nullptr;
    {
        Condition::Holder holder(mCond);
        task = mTasks->take(id);
        if (task != nullptr) noteTaken(1);
    }
    delete task;
    return task != nullptr;
}

int ThreadPool::cancelAll() {
    // Of their own, since a task's destructor may add another.
    TaskQueue taken;
    {
        Condition::Holder holder(mCond);
        mTasks->moveTo(taken);
        noteTaken(mQueued);
    }
    int count = 0;
    for (; const Task* task = taken.pop(); ++count) delete task;
    return count;
}

void* ThreadPool::threadMain(void* pool) {
    static_cast<ThreadPool*>(pool)->runTasks();
    return nullptr;
}

void ThreadPool::startThreads(int count) {
    int started = 0;
    int error = 0;
    for (int i = 0; i < count; ++i) {
        pthread_t thread{};
        const int ret = pthread_create(&thread, nullptr, &ThreadPool::threadMain, this);
        if (ret != 0) {
            error = ret;
            continue;
        }
        pthread_detach(thread);
        ++started;
    }
    if (error != 0) {
        VYN_LOG_ERROR << logging::ErrnoText{error} << "pthread_create fail. " << count - started
                      << " of " << count << " worker threads not started.";
    }
    VYN_LOG_DEBUG << "worker thread created. count: " << started;
    // No thread can have left yet: only the destructor makes them leave.
    Condition::Holder holder(mCond);
    mThreads = started;
}

void ThreadPool::runTasks() {
    nameThread();
    while (Task* task = nextTask()) {
        runTask(task);
        giveWay();
    }
    leave();
}

// Null when the thread is to leave.
ThreadPool::Task* ThreadPool::nextTask() {
    Condition::Holder holder(mCond);
    while (mTasks->isEmpty() && !mQuit) waitForTask();
    if (mQuit) return nullptr;
    Task* const task = mTasks->pop();
    noteTaken(1);
    if (!mTasks->isEmpty()) wakeThread();
    return task;
}

// Returns at once when a task arrives meanwhile.
void ThreadPool::waitForTask() {
    if (!mTasks->setIdle(true)) return;
    if (mHasFirst) {
        ++mOthers;
        mOthersCond.waitInside(mCond);
        --mOthers;
    } else {
        mHasFirst = true;
        mCond.wait();
        mHasFirst = false;
    }
    mCalls = 0;
    if (!mHasFirst && mOthers == 0) mTasks->setIdle(false);
}

// So many tasks are not queued any more.
void ThreadPool::noteTaken(int count) {
    if (mMostQueued > 0) mQueued -= count;
    if (mDraining && mTasks->isEmpty()) mCond.broadcast();
}

// Wakes the first idle thread, which wakes another when it has taken a task and more are left: a
// burst wakes no more threads than it needs. Should a signal be lost, the next task gives another.
// While a thread takes its time to come, only every call whose number is a power of two does so.
void ThreadPool::wakeThread() {
    if (!mHasFirst && mOthers == 0) return;
    ++mCalls;
    if ((mCalls & (mCalls - 1)) != 0) return;
    if (!mHasFirst) {
        mOthersCond.signal();
    } else if (mDraining) {
        mCond.broadcast();
    } else {
        mCond.signal();
    }
}

void ThreadPool::runTask(Task* task) {
    // The switch and the id are read once, so that what was recorded is always removed.
    const bool timed = config::debug::DEBUG_THREAD_POOL_CHECK();
    const int id = task->mId;
    if (timed) recordStart(id);
    task->run();
    if (timed) reportTime(task, id);
    delete task;
}

// Who adds one task after the other has often just not come to the next. Letting it, or another
// thread of the pool, go first takes less than to sleep and to be woken.
void ThreadPool::giveWay() const {
    constexpr int kTimes = 2;
    for (int i = 0; i < kTimes && mTasks->mayBeEmpty(); ++i) sched_yield();
}

// Logs first: once the last thread is counted off, the destructor may end and the application may
// take down what its log lines go to.
void ThreadPool::leave() {
    VYN_LOG_DEBUG << "worker thread " << reinterpret_cast<void*>(pthread_self()) << " destroyed.";
    Condition::Holder holder(mCond);
    if (--mThreads == 0) mCond.signal();
}

void ThreadPool::drainAndQuit() {
    Condition::Holder holder(mCond);
    mDraining = true;
    while (!mTasks->isEmpty() && mThreads > 0) mCond.wait();
    mQuit = true;
    mCond.broadcast();
    mOthersCond.broadcast();
}

void ThreadPool::waitForThreads() {
    Condition::Holder holder(mCond);
    while (mThreads > 0) mCond.wait();
}

void ThreadPool::deleteTasks() {
    int lost = 0;
    // Their destructors may add others.
    while (const int some = cancelAll()) lost += some;
    if (lost > 0) VYN_LOG_ERROR << "tasks deleted without being run: " << lost;
}

}  // namespace vyn
