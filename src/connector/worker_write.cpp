// SPDX-License-Identifier: Apache-2.0

#include <vyn/authenticator.h>
#include <vyn/config.h>
#include <vyn/device.h>
#include <vyn/helper.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "connector/event_tick.h"
#include "connector/gather_scope.h"
#include "connector/missing_part.h"
#include "connector/parser_call.h"
#include "connector/queued_write.h"
#include "connector/worker_flow.h"
#include "connector/worker_tick.h"
#include "connector/write_outcome.h"
#include "device/own_socket.h"

// The ways into the write queue and past it; see worker_drain.cpp for how it leaves.

namespace vyn {

Worker::~Worker() {
    GatherScope::remove(this);
    for (QueuedWrite* write = mWriteQueue.first; write != nullptr;) {
        QueuedWrite::destroy(std::exchange(write, write->next));
    }
    Flow* const flow = existingFlow();
    if (flow == nullptr) return;
    if (flow->gathered != nullptr) QueuedWrite::destroy(flow->gathered);
    delete flow;
}

void Worker::onPacketCreated(const void* data, int len) {
    if (checkValid()) writeRaw(data, len);
}

bool Worker::write(Command* cmd) {
    if (mAuthenticator != nullptr && !mAuthenticator->pass()) {
        VYN_LOG_WARNING << "not authenticated";
        return false;
    }
    if (!checkValid()) return false;
    mLastWriteTick.store(static_cast<int32_t>(EventTick::ofWrite()), std::memory_order_relaxed);
    onBeforeCreatePacket(cmd);
    tellIfMissing(mParser, this);
    VYN_CHECK_OR_RETURN_VALUE(mParser != NULL, false);
    ParserCall call(mParser, this);
    const WriteOutcome outcome(this);
    mParser->setListener(this);
    mParser->createPacket(cmd);
    return outcome.isWhole();
}

bool Worker::writeRaw(const void* data, int len) {
    if (!mayWrite()) return WriteOutcome::note(this, false);
    const Flow* const flow = existingFlow();
    const bool isEager = flow != nullptr && flow->isEager;
    bool isWhole;
    if (mSelfCall) {
        isWhole = writeForSelfCall(data, len);
    } else if (isEager) {
        isWhole = writeEagerly(data, len);
    } else if (config::isAsyncWritting()) {
        return queueWritting(data, len);
    } else {
        isWhole = writeDirectly(data, len);
    }
    return WriteOutcome::note(this, isWhole);
}

int Worker::instantWrite(const void* data, int len) {
    if (mDevice == nullptr) {
        VYN_LOG_WARNING << "mDevice is null";
        return len;
    }
    const int ret = mDevice->write(data, len);
    // Not when a command was stamped: a device that blocks may have waited for its peer since.
    if (ret > 0) mLastSentTick.store(roughTick32(), std::memory_order_relaxed);
    return ret;
}

bool Worker::queueWritting(const void* data, int len) {
    return WriteOutcome::note(this, mayWrite() && queueRest(data, len, false));
}

bool Worker::mayWrite(const char* operation) {
    if (!checkValid(operation)) return false;
    if (!isLeaving()) return true;
    VYN_LOG_WARNING << "no write after disconnectWhenWritten()";
    return false;
}

// What is still queued, from a time of asynchronous writing or from another thread, goes first.
bool Worker::writeDirectly(const void* data, int len) {
    const Drained drained = hasWrittingData() ? drainAside() : Drained::kAll;
    if (isEnd(drained)) return false;
    if (drained != Drained::kAll) return queueRest(data, len, false);
    const int ret = instantWrite(data, len);
    if (ret < len) VYN_LOG_ERRNO_ERROR << "ret < len. " << ret << " bytes written.";
    return ret >= len;
}

// No packet may be cut, neither a queued one by this one nor this one by the next.
bool Worker::writeForSelfCall(const void* data, int len) {
    {
        AutoBriefLock lock(mWriteLock);
        closeGathered(true);
    }
    const Drained drained = hasWrittingData() ? drainAside(true) : Drained::kAll;
    if (isEnd(drained)) return false;
    int written = 0;
    if (drained == Drained::kAll) {
        const int ret = instantWrite(data, len);
        const bool isOnlyLate = ret < 1 && errno == EAGAIN && OwnSocket::of(mDevice).exists();
        VYN_LOG_DEBUG << "write len " << len << " ret len " << ret << " for self call";
        if (ret >= len) return true;
        if (ret < 1 && !isOnlyLate) return false;
        written = std::max(ret, 0);
    }
    VYN_LOG_ERROR << written << " of " << len
                  << " bytes written for self call, the rest is next in the queue. " << this;
    return queueRest(static_cast<const char*>(data) + written, len - written, true);
}

// Behind all others, or next in line. False when that ends the connection.
bool Worker::queueRest(const void* data, int len, bool isNext) {
    QueuedWrite* const write = QueuedWrite::create(data, len);
    if (write == nullptr) {
        endWithoutMemory(len);
        return false;
    }
    bool isTooMuchNow;
    {
        AutoBriefLock lock(mWriteLock);
        isNext ? insertNext(write) : append(write);
        isTooMuchNow = isTooMuch();
    }
    return onQueued(isTooMuchNow);
}

// The peer would miss the bytes in the middle of all others, so this ends the connection.
void Worker::endWithoutMemory(int len) {
    VYN_LOG_ERROR << "out of memory, " << len << " bytes are not written by worker "
                  << static_cast<const void*>(this) << ", disconnect it.";
    end(DisconnectReason::kError, ENOMEM);
}

void Worker::append(QueuedWrite* write) {
    closeGathered();
    mPendingWrites.fetch_add(1, std::memory_order_relaxed);
    link(write);
}

// At the end of the list.
void Worker::link(QueuedWrite* write) {
    (mWriteQueue.last == nullptr ? mWriteQueue.first : mWriteQueue.last->next) = write;
    mWriteQueue.last = write;
    Flow* const flow = existingFlow();
    if (flow == nullptr || flow->lowMark == 0 || flow->wasAboveMark) return;
    flow->wasAboveMark = bytesBehind(0) >= flow->lowMark;
}

// In front of all whole packets but those that were put there before.
void Worker::insertNext(QueuedWrite* write) {
    write->first = true;
    QueuedWrite** place = &mWriteQueue.first;
    while (*place != nullptr && (*place)->first) place = &(*place)->next;
    // Nobody knows what is whole of those on their way.
    if (*place == nullptr || mInFlight > 0) return append(write);
    mPendingWrites.fetch_add(1, std::memory_order_relaxed);
    write->next = std::exchange(*place, write);
}

bool Worker::onQueued(bool isTooMuchNow) {
    // Without a connector the writes wait until the worker is added to one.
    requestServing();
    if (isTooMuchNow) end(DisconnectReason::kOverflow);
    return !isTooMuchNow;
}

bool Worker::isTooMuch() { return waiting() > kMostPendingWrites || hasTooManyBytes(); }

bool Worker::hasTooManyBytes() {
    const Flow* const flow = existingFlow();
    return flow != nullptr && flow->maxPendingBytes > 0 &&
           bytesBehind(mInFlight) > flow->maxPendingBytes;
}

// How many of the writes the device has not been given yet, or has not taken.
int Worker::waiting() const { return mPendingWrites.load(std::memory_order_relaxed) - mInFlight; }

// What is left of all writes but the first so many. There are never many more than a hundred.
size_t Worker::bytesBehind(int writes) {
    size_t bytes = 0;
    for (const QueuedWrite* write = mWriteQueue.first; write != nullptr; write = write->next) {
        if (--writes < 0) bytes += static_cast<size_t>(write->remaining());
    }
    const Flow* const flow = existingFlow();
    if (flow != nullptr && flow->gathered != nullptr) {
        bytes += static_cast<size_t>(flow->gathered->remaining());
    }
    return bytes;
}

}  // namespace vyn
