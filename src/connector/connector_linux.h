// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>
#include <vyn/diagnoser.h>
#include <vyn/worker.h>

#include <atomic>
#include <unordered_set>
#include <vector>

#include "connector/callback_watch.h"
#include "connector/connector_impl.h"
#include "connector/epoll.h"
#include "connector/heartbit_timer.h"
#include "connector/heartbit_walk.h"
#include "connector/loop_counter.h"
#include "connector/message_queue.h"
#include "connector/once_a_second.h"
#include "connector/read_horizon.h"
#include "connector/reminder.h"
#include "connector/stale_events.h"
#include "connector/timer_queue.h"
#include "connector/wake_pipe.h"
#include "connector/worker_registry.h"

namespace vyn {

// The event loop over epoll. Timers, messages and workers each have a queue with a lock of its own.
// No operation holds two of them.
class LinuxConnector : public Connector::Impl {
  public:
    explicit LinuxConnector(Connector* connector);
    ~LinuxConnector() override;

    void attach(Connector::Executor* executor) override;
    void detach(Connector::Executor* executor) override;
    void addWorkerLocked(Worker* worker, Connector::Executor* executor) override;
    void removeWorkerLocked(Worker* worker) override;
    void run() override;
    void stop() override;
    void requestStop(int flushMs) override;
    void dump(std::ostream& os) override;
    int addTimer(Timer* timer, long intervalMs, void* arg) override;
    void removeTimer(int id) override;
    void resetTimer(int id) override;
    void setInterval(int id, long intervalMs) override;
    void setFairness(int turns) override;
    void sendMessageDelayed(Connector::Executor* executor, const Message& message,
                            long delayMs) override;
    uint64_t post(std::function<void()> function, long delayMs) override;
    uint64_t every(long ms, std::function<void()> function) override;
    void cancel(uint64_t id) override;
    void removeMessages(Connector::Executor* executor, const int* what) override;
    void setDropListener(std::function<void(const Message&)> listener) override;
    bool isOnLoopThread() const override { return mTickFd.isOnLoopThread(); }
    void queueWrite() override;
    void queueWriteOf(Worker* worker) override;
    bool queueOverflow(Worker* worker) override;
    void updateDescriptorsOf(Worker* worker) override;
    void restDescriptorsOf(Worker* worker, long ms) override;
    void updateReadingOf(Worker* worker) override;
    void remindOf(Worker* worker, int delayMs) override;
    uint64_t ticketOf(Worker* worker) override;
    int getLoading() override;
    void setLoadingRange(int empty, int full) override;
    LoopFigures figures() override;
    void setCallbackLimit(int ms) override;

    // Has every valid worker check its heartbeat.
    void checkHeartbit();
    // Watches the descriptors of a worker that rested.
    void endRest(const Registration& rested);
    // Ends what is left of a worker's last words.
    void endLastWords(const Registration& speaker);

  private:
    void init();
    void runTurn(epoll_event* events);
    void serveRequests();
    int waitForEvents(epoll_event* events);
    int wait(epoll_event* events, int timeout);
    void noteAwake(const tick::Instant& awake);
    bool isFairTurn();
    int pollEvents(epoll_event* events);
    int64_t nextDue() const;
    int64_t nowIfDue();
    int nextTimerAndMessageTimeout(int64_t now) const;
    bool shallStop();
    void noteWait(int64_t began, int timeout, int count);
    void checkAndWriteData(int count, const epoll_event* events);
    void writeOn(EpollToken token, Worker* worker, int& error);
    Worker::Drained serveWrites(Worker* worker);
    void reportWritten(Worker* worker);
    int settle(const Registration& writer, Worker::Drained drained);
    void checkAndHandleMessage();
    static void deliver(const Message& message);
    void disconnectOverflowed();
    void flushRequestedWrites();
    void dispatch(int count, const epoll_event* events);
    void dispatch(const epoll_event& event, Worker* worker);
    void note(WorkerRegistry::Owner owner, EpollToken token);
    void stopReadingAgain(Worker* worker);
    void onHangUp(uint32_t events, EpollToken token, Worker* worker);
    void onReadable(EpollToken token, Worker* worker);
    bool isOfAnotherProcess() const;

    // When calls of the kernel fail.
    static constexpr int kRetryMs = 10;
    static void pause();
    void dropClosedRegistrations();
    void onWaitFailed(int error);
    void onInterestRefused(int error);
    void onRefused(const WorkerRegistry::Refusal& refusal, const Registration& registration);
    void mendWakePipe();
    void onWakePipeEmpty();

    static constexpr int kNoRequest = -1;

    Connector* mConnector;
    const pid_t mProcess;
    std::unordered_set<Connector::Executor*> mExecutors;
    std::atomic<bool> mRunning{false};
    std::atomic<int> mStopRequest{kNoRequest};  // how many milliseconds it may flush
    int64_t mStopBy = INT64_MAX;                // the tick::now() at which the loop ends
    std::atomic<int> mFairness{0};              // turns; 0 for none
    int mTurnsWithoutEvents = 0;                // in a row, as something was due
    unsigned mTurnsOfMessages = 0;              // those without a wait for events

    // With the wake pipe, in a line of the cache of their own: the loop writes to what is in front.
    alignas(64) Epoll mEpoll;
    WakePipe mTickFd{mEpoll};
    WorkerRegistry mWorkers{mEpoll, mTickFd};
    HeartbitWalk mHeartbitWalk{mWorkers};
    Reminder mReminder{*this};
    HeartbitTimer mHeartbitTimer{*this};  // one of those of mTimers, which drops it at its end
    CallbackWatch mCallbacks;
    TimerQueue mTimers{mTickFd, 0, &mCallbacks};
    MessageQueue mMessages{mTickFd};
    Diagnoser mDiagnoser;
    LoopCount mTurns, mEvents, mDelivered;
    // One value, so that a reader never sees half of a new range. Aligned, so that Clang reads it
    // in one instruction instead of calling a library for it.
    struct alignas(8) LoadingRange {
        int empty;
        int full;
    };
    std::atomic<LoadingRange> mLoadingRange{{0, 100}};

    // Kept for their memory only.
    std::vector<Registration> mOverflowed;
    std::vector<Registration> mDirectWriters;

    int64_t mNow = 0;  // what is due at this tick::now() is the turn's; INT64_MIN for nothing
    int64_t mLastLook = INT64_MIN;  // the last tick::now() of a wait
    bool mLookIsFresh = false;      // nothing has been called since
    bool mExpectsEvents = false;    // there were some at once the last time
    ReadHorizon mReadHorizon;
    StaleEvents mStaleEvents;
    OnceASecond mStaleLine, mWaitLine, mInterestLine, mWakeLine, mEmptyLine;
};

std::ostream& operator<<(std::ostream& os, LinuxConnector* connector);
std::ostream& operator<<(std::ostream& os, LinuxConnector& connector);

}  // namespace vyn
