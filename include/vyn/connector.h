// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include <vyn/export.h>

namespace vyn {

class Command;
struct LoopFigures;
class Timer;
class Worker;
struct Message;

// A thread's event loop: waits on the descriptors of its workers, flushes their queued writes,
// fires timers and delivers messages.
//
//     vyn::Connector connector;
//     connector.attach(&executor);
//     connector.addWorkerLocked(&listener, &executor);
//     connector.run();    // returns after stop()
//
// One connector runs on a thread, and a thread runs one connector. Operations are called on the
// loop's thread, or before run(); those marked "Any thread" take a lock of their own and wake the
// loop where it must notice.
//
// Owns nothing of what it is given: executors, workers and timers belong to the application and
// must outlive their time in the connector. Messages still waiting when it is destroyed are
// dropped. Destroy it when no other thread uses it any more.
class VYN_API Connector {
  public:
    // The loop itself; internal.
    class Impl;

    // The application's handler: gets the events of the workers that were added with it and the
    // messages that it posts to itself. All callbacks run on the loop's thread, but the
    // onNewConnection() of a listening FunctionDevice, which runs on the thread that connects.
    //
    // In every callback everything is allowed: adding and removing workers and timers, posting,
    // stopping, and deleting the worker it is about, once that is removed from the connector, with
    // its device and authenticator. Its parser may be deleted too, if the parser touches nothing of
    // itself once it has reported a command.
    class VYN_API Executor {
      public:
        virtual ~Executor();

        // A complete command of the peer. See Command for who deletes it.
        virtual void onCommand(Worker* worker, Command* command) = 0;
        // A listening device accepted a peer. `data` points to the accepted Socket or UnixSocket,
        // or is the FunctionDevice that connects. A socket must be taken over during the call, by
        // the device that is built from it, or is closed; it may be invalid when accepting failed.
        virtual void onNewConnection(Worker* worker, int fd, void* data) = 0;
        // The connection ended, or is to be dropped. The place to remove and delete the worker.
        virtual void onDisconnected(Worker* worker) = 0;
        // The worker found its peer silent for too long. Comes again every 200 ms until the
        // executor does something about it.
        virtual void onHeartbitTimeout(Worker* worker) = 0;
        // A RtmgrDevice saw a link or an address of this machine change.
        virtual void onNetworkChanged(Worker* worker) = 0;
        // An InotifyDevice saw a change under `path`.
        // `mask` is 256 for a created, 512 for a deleted, 2 for a modified file, else -1.
        virtual void onFileChanged(Worker* worker, const std::string& path, int mask) = 0;
        // The worker's authenticator has passed the peer, or refused it.
        virtual void onAuthenticated(Worker* worker) = 0;
        virtual void onAuthenticationFailed(Worker* worker) = 0;
        // A message posted by this executor that carries no callback of its own.
        virtual void onMessage(Message message) = 0;

        // Any thread. Posts a message to this executor itself, now or after `delayMs`
        // milliseconds. Dropped silently when the executor was never attached. Do not destroy an
        // executor for which messages are waiting: removeMessages() drops them.
        //
        // The loop delivers all messages that are due before it looks at its descriptors. A
        // handler that posts to itself for as long as it runs does so with a delay of at least 1.
        void sendMessage(const Message& message);
        void sendMessageDelayed(const Message& message, long delayMs);

      private:
        friend class LinuxConnector;

        // Set by attach(), and kept after detach(). Other threads post through it meanwhile, so it
        // is read and written atomically; plain, so that executors can be copied.
        Connector* mConnector = nullptr;
    };

    // Opens the loop's descriptors. A process that cannot open any more of them ends here.
    Connector();
    // Must run on the thread that ran the loop, whose place for a connector it frees.
    ~Connector();
    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    // The connector that run() was called for on the calling thread, or null. Any thread.
    [[nodiscard]] static Connector* current();

    // Lets an executor post messages; workers may be added for any. Attaching one twice, or
    // detaching one that is not attached, is fatal.
    void attach(Executor* executor);
    void detach(Executor* executor);

    // Any thread. Registers the worker's descriptors for reading, with `executor` for its events,
    // and then calls the device's onReady() on this thread. The loop leaves the worker alone until
    // that is over. Adding a worker again gives it another executor and registers descriptors that
    // are new.
    void addWorkerLocked(Worker* worker, Executor* executor);
    // Any thread. Forgets the worker and its descriptors, whatever became of them; unknown workers
    // are ignored. On the loop's thread no event comes for the worker afterwards, and it may be
    // deleted at once; a worker that removed itself in a callback and is not deleted may still get
    // what the same read brought. On another thread a callback may be under way: post a message to
    // the loop and delete the worker there.
    void removeWorkerLocked(Worker* worker);

    // Serves the loop until stop(). A thread runs one connector, once: a second call on a thread
    // is fatal until the first connector is destroyed. Callbacks had better throw nothing: an
    // exception that leaves one leaves run(), too, in the middle of a turn, and all that is left to
    // do then is to remove the workers and to destroy the connector.
    void run();
    // Any thread. The loop ends with its current turn, at most 200 ms later. Before run() it has
    // no effect.
    void stop();
    // Any thread, also before run(), which then returns after its first turns. Wakes the loop,
    // which serves on until all its workers have written what is queued, at the longest `flushMs`
    // milliseconds, and ends. A later call moves the end.
    void requestStop(int flushMs = 0);

    // "LinuxConnector: {Pointer: 0x..., Executors: 1, Loading: 3, Workers: [Worker(0x...)]}".
    void dump(std::ostream& os);

    // Any thread, also inside a timer's callbacks. Calls `timer` every `intervalMs` milliseconds,
    // first one interval from now. Returns an id for the calls below. Ids start at 1 and come round
    // after 2147483631; 0 is the connector's own timer for heartbeats, which removing it would end.
    // An interval below 1 fires in every turn and keeps the loop from its descriptors.
    int addTimer(Timer* timer, long intervalMs, void* arg);
    // Any thread, also inside a timer's callbacks. Calls onTimerRemoved(); unknown ids are ignored.
    // Waits for a callback of the timer that another thread is in, so when it has returned none is
    // under way. Inside a callback of a timer, of whatever loop, it does not wait: if the timer is
    // being called then, onTimerRemoved() follows on that thread when that call is over.
    void removeTimer(int id);
    // Any thread, also inside a timer's callbacks. The timer fires next one interval from now.
    void resetTimer(int id);
    // The same, with another interval from here on.
    void setInterval(int id, long intervalMs);

    // Any thread. A handler that posts to itself without a delay, or a timer with an interval below
    // 1, keeps the loop from its descriptors for as long as it does so. After this many turns in a
    // row in which something was due, the loop serves the descriptors that are ready all the same.
    // 0, as at first, for never.
    void setFairness(int turns);

    // Any thread. Posts a message as Executor::sendMessageDelayed() does; `executor` may be null
    // when the message has a callback. Messages come in the order of their ticks, and in the order
    // of posting for equal ticks.
    void sendMessageDelayed(Executor* executor, const Message& message, long delayMs);

    // Any thread. Calls `function` on the loop's thread, now or after `delayMs` milliseconds, in
    // its turn among the messages. Returns an id for cancel(), which no other function of this loop
    // ever gets; 0 for an empty function, which is not posted. The function is destroyed on the
    // loop's thread when it has run, or with the loop; by cancel() on the thread that calls that.
    uint64_t post(std::function<void()> function, long delayMs = 0);
    // Any thread. Calls `function` on the loop's thread every `ms` milliseconds, first one interval
    // from now, until it is cancelled or the loop destroyed; an interval counts as for addTimer().
    uint64_t every(long ms, std::function<void()> function);
    // Any thread. Forgets a function that waits; unknown ids are ignored. Called on a thread that
    // serves no loop, it waits for the function if that is running: it is not, and does not any
    // more, when the call has returned. Hold nothing that the function waits for.
    //
    // On its own loop's thread the function can only be the one that calls this, which is left to
    // its end. A thread that serves another loop does not wait, as that might wait for this one:
    // the function may then be about its last run. An every() function is waited for there, too,
    // unless this is called inside a timer's callback.
    void cancel(uint64_t id);

    // Any thread. Drops the messages that were posted by `executor`, or with it, and carry no
    // callback: those with the code `what`, or all. Waits for an onMessage() of such a message as
    // cancel() does. An executor that is detached, and then rid of its messages on the loop's
    // thread or one that serves none, may be deleted if nobody posts to it and no worker refers to
    // it any more.
    void removeMessages(Executor* executor);
    void removeMessages(Executor* executor, int what);
    // Before other threads use the loop. `listener` is called with each message without a callback
    // that is dropped, to free what its `obj` points to: by removeMessages(), on the thread that
    // calls it, or with the loop, on the thread that destroys that.
    void setDropListener(std::function<void(const Message& message)> listener);

    // Any thread. Whether the caller is inside this loop's run().
    [[nodiscard]] bool isOnLoopThread() const;

    // Any thread. Ends the loop's wait, so that it looks at what is to be written.
    void queueWrite();
    // Any thread. How busy the loop has lately been, 0 to 100 percent, scaled into the loading
    // range.
    [[nodiscard]] int getLoading();
    // Any thread. The range that getLoading() answers in; 0 and 100 at first. `empty` must be less
    // than `full`, anything else is fatal.
    void setLoadingRange(int empty, int full);

    // Any thread. What the loop has done, what waits for it, and what took long; see
    // vyn/loop_figures.h. Counting is always on.
    [[nodiscard]] LoopFigures figures();
    // Any thread. Has a warning written when a callback takes longer than this, at most one a
    // second, and the longest one from here on kept for figures(). 0, as at first, for no limit:
    // callbacks are not timed then.
    void setCallbackLimit(int ms);

  private:
    friend class Worker;

    // A worker has queued a write. Any thread.
    void queueWrite(Worker* worker);
    // A worker's write queue has overflowed: has the loop call its onWriteQueueOverflow(). Returns
    // false when it will not: no loop runs, or the worker is not here. Any thread.
    bool queueOverflow(Worker* worker);
    // A worker's device has other descriptors than before.
    void updateDescriptorsOf(Worker* worker);
    // A worker's device has nothing to do with its descriptors for so many milliseconds.
    void restDescriptorsOf(Worker* worker, long ms);
    // A worker has begun or ended to read. Any thread.
    void updateReadingOf(Worker* worker);
    // Has the loop call the worker's onLastWordsTimeout() then, if it is still here. Any thread.
    void remindOf(Worker* worker, int delayMs);
    // Numbers the additions of workers: 0 while this one is not here. Any thread.
    uint64_t ticketOf(Worker* worker);

    static Impl* createImplement(Connector* connector);
    static void destroyImplement(Impl* impl);

    Impl* mImpl;
};

// As dump(); "Connector(NULL)" for null.
VYN_API std::ostream& operator<<(std::ostream& os, Connector* connector);
VYN_API std::ostream& operator<<(std::ostream& os, Connector& connector);

}  // namespace vyn

// An executor takes messages by value, so whoever derives from it needs them complete. The two
// headers include each other: a message names the executor that posted it.
#include <vyn/message.h>  // IWYU pragma: export
