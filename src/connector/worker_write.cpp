#include <vyn/authenticator.h>
#include <vyn/config.h>
#include <vyn/device.h>
#include <vyn/helper.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "connector/parser_call.h"
#include "connector/queued_write.h"
#include "device/own_socket.h"

// The ways into the write queue and past it; see worker_drain.cpp for how it leaves.

namespace vyn {

Worker::~Worker() {
    for (QueuedWrite* write = mWriteQueue.first; write != nullptr;) {
        QueuedWrite::destroy(std::exchange(write, write->next));
    }
}

void Worker::onPacketCreated(const void* data, int len) {
    if (checkValid()) writeRaw(data, len);
}

void Worker::write(Command* cmd) {
    if (mAuthenticator != nullptr && !mAuthenticator->pass()) {
        VYN_LOG_WARNING << "not authenticated";
        return;
    }
    if (!checkValid()) return;
    mLastWriteTick.store(helper::mtick(), std::memory_order_relaxed);
    onBeforeCreatePacket(cmd);
    VYN_CHECK_OR_RETURN(mParser != NULL);
    ParserCall call(mParser, this);
    mParser->setListener(this);
    mParser->createPacket(cmd);
}

void Worker::writeRaw(const void* data, int len) {
    if (!checkValid()) return;
    if (mSelfCall) {
        writeForSelfCall(data, len);
    } else if (config::isAsyncWritting()) {
        queueWritting(data, len);
    } else {
        writeDirectly(data, len);
    }
}

int Worker::instantWrite(const void* data, int len) {
    if (mDevice == nullptr) {
        VYN_LOG_WARNING << "mDevice is null";
        return len;
    }
    return mDevice->write(data, len);
}

void Worker::queueWritting(const void* data, int len) {
    if (!checkValid()) return;
    QueuedWrite* const write = createWrite(data, len);
    if (write == nullptr) return;
    int pending;
    {
        AutoLock lock(mWriteLock);
        pending = append(write);
    }
    onQueued(pending);
}

// What is still queued, from a time of asynchronous writing or from another thread, goes first.
void Worker::writeDirectly(const void* data, int len) {
    const Drained drained = hasWrittingData() ? drainOrEnd() : Drained::kAll;
    if (isEnd(drained)) return;
    if (drained != Drained::kAll) {
        queueWritting(data, len);
        return;
    }
    const int ret = instantWrite(data, len);
    if (ret < len) VYN_LOG_ERRNO_ERROR << "ret < len. " << ret << " bytes written.";
}

// No packet may be cut, neither a queued one by this one nor this one by the next.
void Worker::writeForSelfCall(const void* data, int len) {
    const Drained drained = hasWrittingData() ? drainOrEnd(true) : Drained::kAll;
    if (isEnd(drained)) return;
    int written = 0;
    if (drained == Drained::kAll) {
        const int ret = instantWrite(data, len);
        const bool isOnlyLate = ret < 1 && errno == EAGAIN && OwnSocket::of(mDevice).exists();
        VYN_LOG_DEBUG << "write len " << len << " ret len " << ret << " for self call";
        if (ret >= len || (ret < 1 && !isOnlyLate)) return;
        written = std::max(ret, 0);
    }
    VYN_LOG_ERROR << written << " of " << len
                  << " bytes written for self call, the rest is next in the queue. " << this;
    queueNext(static_cast<const char*>(data) + written, len - written);
}

void Worker::queueNext(const void* data, int len) {
    QueuedWrite* const write = createWrite(data, len);
    if (write == nullptr) return;
    int pending;
    {
        AutoLock lock(mWriteLock);
        pending = insertNext(write);
    }
    onQueued(pending);
}

// Null when there is no memory. The peer would miss the bytes in the middle of all others, so that
// ends the connection.
QueuedWrite* Worker::createWrite(const void* data, int len) {
    QueuedWrite* const write = QueuedWrite::create(data, len);
    if (write != nullptr) return write;
    VYN_LOG_ERROR << "out of memory, " << len << " bytes are not written by worker "
                  << static_cast<const void*>(this) << ", disconnect it.";
    end(End::kNoMemory);
    return nullptr;
}

// Returns how many writes are waiting now, as insertNext().
int Worker::append(QueuedWrite* write) {
    (mWriteQueue.last == nullptr ? mWriteQueue.first : mWriteQueue.last->next) = write;
    mWriteQueue.last = write;
    mPendingWrites.fetch_add(1, std::memory_order_relaxed);
    return waiting();
}

// In front of all whole packets but those that were put there before.
int Worker::insertNext(QueuedWrite* write) {
    write->first = true;
    if (mInFlight > 0) return append(write);  // nobody knows yet what is whole
    QueuedWrite** place = &mWriteQueue.first;
    while (*place != nullptr && (*place)->first) place = &(*place)->next;
    if (*place == nullptr) return append(write);
    write->next = std::exchange(*place, write);
    mPendingWrites.fetch_add(1, std::memory_order_relaxed);
    return waiting();
}

void Worker::onQueued(int pending) {
    // Without a connector the writes wait until the worker is added to one.
    Connector* connector = getConnector();
    if (connector != nullptr) connector->queueWrite(this);
    if (pending > kMostPendingWrites) end(End::kOverflow);
}

// The caller may be in the middle of something, such as parsing, that could not bear the worker
// being deleted, or on another thread than the loop: so the loop gets to report it, once.
void Worker::end(End why) {
    if (!mValid.exchange(false, std::memory_order_relaxed)) return;
    mEnd.store(why, std::memory_order_relaxed);
    Connector* connector = getConnector();
    if (connector == nullptr || !connector->queueOverflow(this)) onWriteQueueOverflow();
}

void Worker::onWriteQueueOverflow() {
    if (mEnd.load(std::memory_order_relaxed) == End::kOverflow) {
        VYN_LOG_ERROR << "\033[1;31mAlert! \033[mclient blocks " << mPendingWrites
                      << " writting requests, disconnect it. " << this;
    }
    onDisconnected();
}

}  // namespace vyn
