// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <vyn/connector.h>
#include <vyn/lock.h>
#include <vyn/parser.h>

namespace vyn {

class Authenticator;
class Command;
class Device;
struct QueuedWrite;
struct WriteTail;

// One write that waits in a worker's queue.
struct WriteNode {
    void* data;  // in one block with the node
    int offset;  // how much of it is written
    int size;    // in bytes
};

class Worker;

// Why a connection ended; see Worker::disconnectReason().
enum class DisconnectReason : unsigned char {
    kNone,         // it has not
    kEndOfStream,  // the peer has ended it
    kError,        // reading or writing failed, see Worker::disconnectError()
    kHangUp,       // the peer hung up, and nothing was left to read
    kOverflow,     // the peer did not read: too much was waiting to be written
    kTimeout,      // disconnectWhenWritten() took too long
    kOwnWish,      // the application wanted it
};

// Is told how the writes of a worker get on, so that whoever produces more than a slow peer takes
// can wait for it. Not owned, and must outlive its time with the worker; may serve many workers.
class VYN_API WriteListener {
  public:
    virtual ~WriteListener();
    // Called on the loop's thread, between two turns' worth of events: what was queued has all been
    // written (pendingBytes() is 0), or less than the mark is left of it. Everything is allowed
    // that is in the executor's callbacks, deleting the worker included. Not called for writes that
    // never had to wait.
    virtual void onWritten(Worker* worker) = 0;
};

// One connection: joins a device (bytes), a parser (framing), an optional authenticator and, once
// it is added to a connector, the executor that handles its events.
//
// Incoming:  device -> onData -> authenticator, until it passes the peer; then parser ->
//            onCommandParsed -> Executor::onCommand.
// Outgoing:  write(Command*) -> parser -> onPacketCreated -> writeRaw -> the device at once, or,
//            with asynchronous writing, the write queue that the loop drains.
//
// Owns nothing but its queued writes: the application deletes worker, device, parser and
// authenticator, having removed the worker from its connector, and may do so inside any callback of
// its executor. Everything is called on the loop's thread; what any thread may call says so.
//
// A worker that is not valid (after onDisconnected() or disable()) answers every operation with the
// warning "not valid" and does nothing.
class VYN_API Worker : public Parser::PostListener {
  public:
    // A worker without a device; valid.
    Worker();
    // Neither is owned. Attaches itself to the device, which must be constructed by now: a member
    // of a class that derives from Worker is not. Valid when there is a device.
    Worker(Device* device, Parser* parser);
    // Drops what is still queued. Does not remove the worker from its connector.
    ~Worker() override;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // --- Results of the parser.
    // Passes the command on to the executor.
    void onCommandParsed(Command* cmd) override;
    // Writes the packet, as writeRaw() does.
    void onPacketCreated(const void* data, int len) override;

    // --- For subclasses.
    // The name of the class, as dumps show it.
    virtual const char* getClassName();
    // Prints the fields; the base class prints its device.
    virtual void dump(std::ostream& os);
    // After a command was parsed, before the executor gets it; and before a command is turned into
    // a packet. The worker may not be deleted in here.
    virtual void onPostCreateCommand(Command* cmd);
    virtual void onBeforeCreatePacket(Command* cmd);
    // Returns true when it consumed the incoming bytes itself; the parser then does not see them.
    virtual bool handledBeforeParser(const void* data, int len);
    // The heartbeat's policy, asked every 200 ms of every worker, so it should be short; times are
    // milliseconds.
    // True when the peer has been silent for too long; the executor's onHeartbitTimeout() follows,
    // and until then the worker may not be deleted. `sinceLastRead` ends where the loop last looked
    // for what peers sent, so a loop that was held up takes nobody for silent whose bytes wait.
    virtual bool hasRemoteTimedout(long sinceLastRead);
    // The place to write a keep-alive. `sinceLastWrite` counts from the last write(Command*).
    // Before the first one it is the present tick, which may be any number, a negative one for half
    // of the time. So a policy that is always right does not look at it until it has written once:
    //
    //     void sendHeartbit(long sinceLastWrite) override {
    //         if (mHasPinged && sinceLastWrite < 30000) return;
    //         mHasPinged = true;
    //         Ping ping;
    //         write(&ping);
    //     }
    //
    // Where there is an authenticator, it first returns while hasAuthenticated() is false: a write
    // that is refused does not count as one.
    virtual void sendHeartbit(long sinceLastWrite);

    // --- Wiring.
    // Called by the connector; neither is owned.
    void attach(Connector* connector, Connector::Executor* executor);
    // Not owned; null removes the authenticator.
    void attach(Authenticator* auth);
    // Any thread. See above for what a worker does that is not valid.
    [[nodiscard]] bool isValid() const;
    void enable();
    void disable();
    // A figure of the application's own; the library does not read it.
    void setLoading(int loading);
    // While set, writeRaw() writes at once even when asynchronous writing is on, before all whole
    // packets that are queued: for a caller on the loop's thread that waits for the answer itself.
    // A packet of which a part is written is finished first; where the device takes no more of
    // that, or not all of the call's own bytes, these come next in line, which is logged.
    void setSelfCallFlag(bool selfCall);

    // What it joins; null for what there is not.
    [[nodiscard]] Device* getDevice() const { return mDevice; }
    [[nodiscard]] Parser* getParser() const { return mParser; }
    [[nodiscard]] Authenticator* getAuthenticator() const { return mAuthenticator; }
    [[nodiscard]] Connector* getConnector() const {
        return mConnector.load(std::memory_order_acquire);
    }
    [[nodiscard]] Connector::Executor* getExecutor() const {
        return mExecutor.load(std::memory_order_acquire);
    }

    // --- Writing.
    // What tells its outcome returns true when all bytes were written or queued, and false when
    // some were lost: the worker is not valid, or was ended by this write.
    //
    // Encodes the command with the parser and writes the packet. Refused with the warning "not
    // authenticated" until an attached authenticator passes the peer. False also when the parser
    // made no packet of it.
    bool write(Command* cmd);
    // Writes bytes as they are. With asynchronous writing (config::setAsyncWritting) they are
    // copied and queued. Otherwise they are written at once, behind what is still queued, and what
    // the transport does not take is logged and lost; while something stays queued, they are too.
    bool writeRaw(const void* data, int len);
    // Writes to the device at once. Returns what the device returns; `len` without a device.
    int instantWrite(const void* data, int len);
    // Any thread, while the worker exists. Queues a copy for the loop to write. A peer with more
    // than 100 writes waiting is not reading: the worker becomes invalid, and in the loop's next
    // turn an alert is logged and onDisconnected() follows. While no loop runs, that happens before
    // this returns. The same becomes of a worker for whose bytes there is no memory. The queue is
    // written between the loop's turns only, so a handler that answers many commands of one read
    // gathers its answers into fewer writes.
    //
    // The loop never waits for one of the library's sockets. What can never be sent, such as a
    // datagram that is too large or bytes for a peer that is gone, is logged: a datagram is
    // dropped, and the end of a stream is reported as that of a peer that does not read.
    bool queueWritting(const void* data, int len);
    // Any thread. How many writes, and how many of their bytes, the transport has not taken yet.
    [[nodiscard]] int pendingWrites() const;
    [[nodiscard]] size_t pendingBytes();

    // --- Slow peers. All of this is off unless it is asked for.
    // A second bound beside the 100 writes: a worker for which more than `bytes` wait is ended in
    // the same way, with the same alert. 0 for none. Counts whole writes, so it should be larger
    // than the largest of them.
    void setMaxPendingBytes(size_t bytes);
    // Has the listener told when everything queued is written, and also when pendingBytes() falls
    // below `lowMark` after having reached it. Null for none.
    void setWriteListener(WriteListener* listener, size_t lowMark = 0);
    // While it is on, write() and writeRaw() on the loop's thread give the device the bytes at once
    // when nothing is queued, and queue what it does not take: nothing is lost, whether
    // asynchronous writing is on or not. What is written while a read is handled is gathered, and
    // becomes one write when the read has been handled, so a peer that sends many commands at once
    // is answered with one send. Datagrams are not gathered. What a worker is to get that is
    // disconnected in the same handler is written first by disconnectWhenWritten() only.
    //
    // What other callbacks write to a stream is given to the device at once up to 4 MiB in one turn
    // of the loop, and queued beyond: so who writes on while nothing is pending lets the loop go
    // on, and is called by it again (see WriteListener).
    void setEagerWriting(bool on);
    // Any thread. Stops reading, which makes a fast peer wait, and begins again. What has been read
    // is still delivered. A pause is no silence of the peer's: the heartbeat does not count it. A
    // peer that hangs up meanwhile is noticed when reading resumes: its last bytes come first, then
    // onDisconnected(). For devices with descriptors.
    void pauseReading();
    void resumeReading();

    // --- How a connection ends.
    // Any thread. Last words: no more commands are taken, not even those of the same read, nor
    // writes. What is queued is written, this side of a stream ended, and when the peer's system
    // has got it all, or the peer is gone, onDisconnected() is reported, once; at the latest after
    // `timeoutMs` milliseconds. What the peer sends meanwhile is read and thrown away. A worker
    // that is in no connector writes what is taken at once, and reports before this returns.
    void disconnectWhenWritten(int timeoutMs);
    // While it is on, a peer that has ended its own half of a stream gets what is queued by then
    // before onDisconnected() is reported.
    void setAllowHalfOpen(bool on);
    // Why onDisconnected() came, or is about to: the first reason since the worker was made or
    // enabled. Any thread.
    [[nodiscard]] DisconnectReason disconnectReason() const;
    // The errno of kError, if it is known; else 0.
    [[nodiscard]] int disconnectError() const;

    // Any thread. Milliseconds since the transport last took a byte, or since the worker was made;
    // some too many, at times.
    // For policies in which a peer that takes what it is sent is not silent:
    //
    //     bool hasRemoteTimedout(long sinceLastRead) override {
    //         return std::min(sinceLastRead, sinceLastSent()) > 60000;
    //     }
    [[nodiscard]] long sinceLastSent() const;

    // --- Calls of the connector.
    // Passed on to the device; without one there is no descriptor.
    int getFd();
    std::vector<int> getFds();
    void onReady();
    void onDataArrival(int fd);
    // Writes as much of the queue as the device takes. True when nothing is left.
    bool performWrite();
    // Forgets what is queued, for a new connection that is not to get the rest of the old one's.
    void dropWrites();
    // Any thread. True when writes are queued. Waits for nothing.
    bool hasWrittingData();
    // How many bytes the device is to read at a time; 0 for what is usual. See
    // BaseDevice::setReadSize(), which sets it, and the bound in bytes if there is none.
    [[nodiscard]] int readSize() const;
    void setReadSize(int bytes);
    // Asks sendHeartbit() and hasRemoteTimedout().
    void checkHeartbit();

    // --- Events of the device, passed on to the executor.
    // The bytes go to the authenticator until it has passed the peer, then to the parser.
    void onData(const void* data, int len);
    // Makes the worker invalid first. Every call reaches the executor.
    void onDisconnected();
    // The executor's callbacks of these names follow.
    void onNewConnection(int fd, void* data);
    void onNetworkChanged();
    void onFileChanged(const std::string& path, int mask);

    // The connector that has this worker watches the device's present descriptors.
    void onDescriptorsChanged();
    // Why the onDisconnected() that follows comes: the first reason counts. `error` is an errno.
    void setDisconnectReason(DisconnectReason reason, int error = 0);
    // The device has no connection yet, or has one now; the connector watches its descriptors of
    // that state. Until it has one the heartbeat rests, and a pause of reading waits. The peer's
    // silence begins with the connection.
    void setConnecting(bool connecting);
    // A stream has reached its end. True when the worker goes on without reading, to write what is
    // queued; otherwise the device reports onDisconnected().
    bool outlivesEndOfStream();
    // The connector that has this worker does not watch them for so many milliseconds.
    void onDeviceRests(int ms);

    // --- Authentication.
    // Asks an attached authenticator to start.
    void requireAuth();
    // True without an authenticator.
    bool hasAuthenticated();
    // The authenticator's verdict, passed on to the executor.
    void onAuthenticated();
    void onAuthenticationFailed();

  private:
    friend class ClientLink;
    friend class GatherScope;
    friend class HeartbitWalk;
    friend class LinuxConnector;
    friend class WatchedDescriptors;
    friend class WorkerRegistry;

    // Where a drain of the queue stopped.
    enum class Drained {
        kAll,             // nothing is left
        kMore,            // something was queued meanwhile
        kAwaitsWritable,  // the device takes no more
        kAwaitsMoment,    // it does, or is done, a moment from now
        kAwaitsRead,      // it never will, but has no descriptor or is still to be read
        kFailed,          // it never will
        kOverflow,        // it took nothing of too much
        kDone,            // all is written of a connection that was to end then
    };
    static bool isEnd(Drained drained) { return drained >= Drained::kFailed; }
    struct WriteBatch;
    struct Flow;

    // The steps of checkHeartbit(). Times are 64 bits of ticks. The worker may be gone after either
    // of the latter two.
    long silenceUntil(int64_t readUntil);  // 0 when that is INT64_MIN
    void keepAlive(int64_t now);
    bool reportSilence(long silence);  // returns whether the executor was called
    void deliver(const void* data, int len, int64_t now);

    // --- Into the queue.
    bool mayWrite(const char* operation = __builtin_FUNCTION());
    bool writeDirectly(const void* data, int len);
    bool writeForSelfCall(const void* data, int len);
    bool writeEagerly(const void* data, int len);
    bool exceedsTurn(int len);
    bool writeBehindGathered(const void* data, int len);
    bool gather(const void* data, int len);
    bool queueRest(const void* data, int len, bool isNext);
    bool makeRoom(int len) VYN_REQUIRES(mWriteLock);
    void endWithoutMemory(int len);
    void append(QueuedWrite* write) VYN_REQUIRES(mWriteLock);
    void insertNext(QueuedWrite* write) VYN_REQUIRES(mWriteLock);
    void link(QueuedWrite* write) VYN_REQUIRES(mWriteLock);
    void closeGathered(bool isFirst = false) VYN_REQUIRES(mWriteLock);
    void flushGathered();
    Drained drainAside(bool onlyFirst = false, WriteTail* tail = nullptr);
    bool onQueued(bool isTooMuch);
    bool isTooMuch() VYN_REQUIRES(mWriteLock);
    bool hasTooManyBytes() VYN_REQUIRES(mWriteLock);
    int waiting() const VYN_REQUIRES(mWriteLock);
    size_t bytesBehind(int writes) VYN_REQUIRES(mWriteLock);

    // --- Out of it.
    // Drains the queue, and ends the connection when that fails, or when it was to end with the
    // last write: the worker may be deleted then.
    Drained serveWrites();
    Drained drainOrEnd(bool onlyFirst, WriteTail* tail);
    Drained drain(bool onlyFirst, WriteTail* tail);
    bool fill(WriteBatch& batch, bool onlyFirst, WriteTail* tail) VYN_REQUIRES(mWriteLock);
    void transmit(WriteBatch& batch);
    Drained judge(WriteBatch& batch);
    Drained judgeEnd(int error);
    void consume(const WriteBatch& batch) VYN_REQUIRES(mWriteLock);
    void removeFirst() VYN_REQUIRES(mWriteLock);
    void noteWritten() VYN_REQUIRES(mWriteLock);
    // Whether a drain finds out by itself, without waiting, what the device takes.
    bool drainsWithoutWaiting();
    // Any thread. Whether the loop has to look at this worker for its writes.
    bool needsServing();
    // Tells the listener what serving found; the worker may be deleted then.
    void reportWritten();
    void requestServing();

    // --- Reading.
    bool isReadingPaused() const;
    bool isReading() const;
    bool isConnecting() const;
    void updateReading();

    // --- The end.
    Drained leave(Drained drained);
    void goOnLeaving();
    void beginAnew();
    void onLastWordsTimeout();
    bool isLeaving() const;
    void end(DisconnectReason why, int error = 0);
    void onWriteQueueOverflow();

    // Made when it is needed first.
    Flow& flow() VYN_REQUIRES(mWriteLock);
    Flow* existingFlow() const { return mFlow.load(std::memory_order_acquire); }
    // Warns in the name of the operation that asks.
    bool checkValid(const char* operation = __builtin_FUNCTION()) const {
        const bool isValid = mValid.load(std::memory_order_relaxed);
        if (__builtin_expect(!isValid, 0)) warnNotValid(operation);
        return isValid;
    }
    static void warnNotValid(const char* operation);

    // The writes that wait, a list.
    struct WriteQueue {
        QueuedWrite* first = nullptr;
        QueuedWrite* last = nullptr;
    };

    Device* mDevice = nullptr;
    // Atomic, since a worker may be added again from another thread.
    std::atomic<Connector*> mConnector{nullptr};
    std::atomic<Connector::Executor*> mExecutor{nullptr};
    Parser* mParser = nullptr;
    Authenticator* mAuthenticator = nullptr;
    std::atomic<bool> mValid;
    std::atomic<DisconnectReason> mReason{DisconnectReason::kNone};
    std::atomic<unsigned char> mError{0};
    int mLoading = 0;
    // Atomic, since a function device may connect from another thread. Ticks have 32 bits.
    std::atomic<int32_t> mLastWriteTick{0};
    std::atomic<int32_t> mLastReadTick;
    bool mSelfCall = false;
    bool mDraining VYN_GUARDED_BY(mWriteLock) = false;
    std::atomic<unsigned char> mReadingStops{0};
    std::atomic<int32_t> mLastSentTick;
    WriteQueue mWriteQueue VYN_GUARDED_BY(mWriteLock);
    std::atomic<int> mPendingWrites{0};  // changed with the queue
    // Writes that the device is being given: they may have gone by now.
    int8_t mInFlight VYN_GUARDED_BY(mWriteLock) = 0;
    // Held for the queue alone, never while the device writes.
    BriefLock mWriteLock;
    std::atomic<Flow*> mFlow{nullptr};
};

// "Worker(0x...): {Connector=0x..., NetDevice(0x...): {...}}", or "Worker(NULL)".
VYN_API std::ostream& operator<<(std::ostream& os, Worker* worker);
VYN_API std::ostream& operator<<(std::ostream& os, Worker& worker);

}  // namespace vyn
