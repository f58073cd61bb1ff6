// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <vyn/condition.h>
#include <vyn/export.h>
#include <vyn/thread_annotations.h>

namespace vyn {

class Connector;
class TaskQueue;

// Runs tasks on a fixed number of threads of its own, started in the order in which they were
// added: the way to move blocking work off a connector's loop. A task is a function, or an object
// of a class of the application's:
//
//     pool.addTask([path] { removeOldFiles(path); });
//
//     class Resize : public vyn::ThreadPool::Task {
//         void run() override { ... }
//     };
//     pool.addTask(new Resize);
//
// Its threads are named "ThreadPool-" and their id, of which the kernel keeps 15 characters. While
// config::debug::DEBUG_THREAD_POOL_CHECK() is on, tasks are timed: one that ran for more than
// 10000 ms leaves a warning, and checkTaskTimeout() lists those that are still running.
class VYN_API ThreadPool {
  public:
    // A piece of work. An application derives from it.
    class VYN_API Task {
      public:
        virtual ~Task() = default;
        // Does the work, on one of the pool's threads. It may add tasks, but not destroy the pool.
        virtual void run() = 0;

        // The number addTask() gave it: 1 for the first task of the process. Tasks of all pools are
        // numbered together.
        int mId = 0;

      private:
        friend class TaskQueue;

        Task* mNext = nullptr;  // in the queue
    };

    // Starts `tasks` threads; 0 or less is a fatal error. Threads the system refuses to start leave
    // one error line, and the pool works with the others.
    explicit ThreadPool(int tasks);
    // The same with at most so many tasks in the queue, those that are running not counted; 0 or
    // less stands for any number.
    ThreadPool(int tasks, int mostQueued);
    // Waits until every task has been started and every thread has ended. Called on a thread that
    // is not one of the pool's own.
    //
    // Tasks may go on adding tasks meanwhile. Those added while others are still queued are run;
    // once the queue is empty the pool closes, and what a last running task adds is deleted without
    // being run. So is everything queued in a pool of which no thread could be started. One error
    // line then tells how many tasks were lost.
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Numbers and queues a task made with `new`, not null: the pool owns it from here on and
    // deletes it once it has run. Returns its number; where the queue is as long as it may be the
    // task is deleted at once, unrun, and there is none. It may have run when this returns. Any
    // thread.
    std::optional<int> addTask(Task* task);
    // The same for a function, which is not empty and does not throw. It is destroyed on the thread
    // that has run it, before the next task; unrun, on the thread that cancels or refuses it.
    // std::bad_alloc leaves the queue as it was.
    std::optional<int> addTask(std::function<void()> work);
    // The same for a function whose end a loop is told: once `work` has run and is destroyed,
    // `done` is posted to the loop, as by Connector::post(), and runs on its thread. A loop that is
    // not running, or is stopped before, runs it when it is run again. When the loop is destroyed
    // before, also while `work` is running, `done` is destroyed uncalled: on the loop's thread when
    // it had been posted, else on the pool's. So is it when there is no memory to post it, with an
    // error line. Neither is called when the task is cancelled.
    //
    //     pool.addTask([job] { job->found = lookUp(job->name); }, loop,
    //                  [this, job] { show(job->found); });  // job is a std::shared_ptr
    //
    // `this` must then live as long as the loop, or `done` look whether it does.
    std::optional<int> addTask(std::function<void()> work, Connector& loop,
                               std::function<void()> done);

    // Deletes the task of that number, unrun, if it is still queued, and tells whether it was. When
    // it was not, it may be running on another thread. Looks at one task after the other. Any
    // thread.
    bool cancel(int id);
    // Deletes, unrun, all tasks that are queued, and returns how many those were. Any thread.
    int cancelAll();

    // The tasks that have been running for more than 10000 ms, by id, such as
    // "{ Task id:3, cost 12000 ms.}, { Task id:9, cost 10500 ms.}, "; empty without one. Any
    // thread.
    [[nodiscard]] std::string checkTaskTimeout();

  private:
    static void* threadMain(void* pool);

    void startThreads(int count);
    void runTasks();
    Task* nextTask();
    void waitForTask() VYN_REQUIRES(mCond);
    void wakeThread() VYN_REQUIRES(mCond);
    void noteTaken(int count) VYN_REQUIRES(mCond);
    void runTask(Task* task);
    void giveWay() const;
    void leave();

    void recordStart(int id);
    void reportTime(const Task* task, int id);

    void drainAndQuit();
    void forgetStarts();
    void waitForThreads();
    void deleteTasks();

    // The first idle thread waits on it, and the destructor.
    Condition mCond;
    // Guards only the starting times. Never held together with mCond.
    Condition mTimeCond;
    int mThreads VYN_GUARDED_BY(mCond) = 0;
    bool mQuit VYN_GUARDED_BY(mCond) = false;
    // Guarded by mCond but for what it says itself.
    const std::unique_ptr<TaskQueue> mTasks;
    // The tick at which each timed task that is now running started.
    std::map<int, long> mRunningSince VYN_GUARDED_BY(mTimeCond);
    // Set while the destructor waits for the queue to become empty. A signal could then wake the
    // destructor in place of the thread it was meant for, so all waiters are woken instead.
    bool mDraining VYN_GUARDED_BY(mCond) = false;
    // A thread waits as the first, or is being woken.
    bool mHasFirst VYN_GUARDED_BY(mCond) = false;
    // The other idle threads, and what they wait on, with the mutex of mCond.
    int mOthers VYN_GUARDED_BY(mCond) = 0;
    Condition mOthersCond;
    // How often an idle thread was to be woken since the last one came.
    unsigned mCalls VYN_GUARDED_BY(mCond) = 0;
    // How many tasks may be queued, 0 for any number, and how many are; only counted for a limit.
    const int mMostQueued;
    int mQueued VYN_GUARDED_BY(mCond) = 0;
};

}  // namespace vyn
