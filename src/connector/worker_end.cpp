// SPDX-License-Identifier: Apache-2.0

#include <vyn/connector.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>

#include "common/tick.h"
#include "connector/gather_scope.h"
#include "connector/worker_flow.h"
#include "device/own_socket.h"

// How a connection ends: by the library, with last words, or when a peer has ended its half.

namespace vyn {

DisconnectReason Worker::disconnectReason() const {
    return mReason.load(std::memory_order_relaxed);
}

int Worker::disconnectError() const { return mError.load(std::memory_order_relaxed); }

void Worker::setDisconnectReason(DisconnectReason reason, int error) {
    DisconnectReason none = DisconnectReason::kNone;
    if (!mReason.compare_exchange_strong(none, reason, std::memory_order_relaxed)) return;
    mError.store(static_cast<unsigned char>(error), std::memory_order_relaxed);
}

// The caller may be in the middle of something, such as parsing, that could not bear the worker
// being deleted, or on another thread than the loop: so the loop gets to report it, once.
void Worker::end(DisconnectReason why, int error) {
    if (!mValid.exchange(false, std::memory_order_relaxed)) return;
    setDisconnectReason(why, error);
    Connector* connector = getConnector();
    if (connector != nullptr && connector->queueOverflow(this)) return;
    // Who has removed it in the callback that gathered does not hear of it any more.
    const bool isRemoved =
        GatherScope::isFlushing(this) && connector != nullptr && connector->ticketOf(this) == 0;
    if (!isRemoved) onWriteQueueOverflow();
}

void Worker::onWriteQueueOverflow() {
    if (disconnectReason() == DisconnectReason::kOverflow) {
        VYN_LOG_ERROR << "\033[1;31mAlert! \033[mclient blocks " << mPendingWrites
                      << " writting requests, disconnect it. " << this;
    }
    onDisconnected();
}

void Worker::disconnectWhenWritten(int timeoutMs) {
    if (!checkValid()) return;
    {
        AutoBriefLock lock(mWriteLock);
        flow().leaveUntil = tick::after(timeoutMs);
        flow().isLeaving = true;
        mReadingStops.fetch_and(static_cast<unsigned char>(~kPausedByApplication));
    }
    Connector* const connector = getConnector();
    if (connector == nullptr || connector->ticketOf(this) == 0) {
        if (!isEnd(serveWrites())) end(DisconnectReason::kTimeout);
        return;
    }
    updateReading();
    requestServing();
    connector->remindOf(this, timeoutMs);
}

bool Worker::isLeaving() const {
    const Flow* const flow = existingFlow();
    return flow != nullptr && flow->isLeaving;
}

// The last part of serving the queue of a connection that is to end with it.
Worker::Drained Worker::leave(Drained drained) {
    Flow& flow = *existingFlow();
    if (drained != Drained::kAll) return drained;
    const bool hasEnded = (mReadingStops.load(std::memory_order_relaxed) & kStreamHasEnded) != 0;
    if (!flow.isLeaving && !hasEnded) return drained;
    if (flow.isLeaving) {
        if (!flow.sendEnded) endSending(getFd());
        flow.sendEnded = true;
        // Closing a socket with bytes of the peer's unread would take back what is on its way.
        if (hasBytesUnderWay(getFd())) return Drained::kAwaitsMoment;
    }
    end(flow.isLeaving ? DisconnectReason::kOwnWish : DisconnectReason::kEndOfStream);
    return Drained::kDone;
}

void Worker::onLastWordsTimeout() {
    if (isLeaving() && tick::now() >= existingFlow()->leaveUntil) end(DisconnectReason::kTimeout);
}

// For a worker that is added while it is to end.
void Worker::goOnLeaving() {
    if (!isLeaving()) return;
    const int64_t left = existingFlow()->leaveUntil - tick::now();
    getConnector()->remindOf(this, static_cast<int>(std::max<int64_t>(left, 0)));
}

// After the end of a connection, for another.
void Worker::beginAnew() {
    Flow* const flow = existingFlow();
    if (flow == nullptr) return;
    flow->isLeaving = false;
    flow->sendEnded = flow->cannotWrite = false;
    mReadingStops.fetch_and(static_cast<unsigned char>(~kStreamHasEnded));
    updateReading();
}

void Worker::setAllowHalfOpen(bool on) {
    AutoBriefLock lock(mWriteLock);
    flow().allowsHalfOpen = on;
}

bool Worker::outlivesEndOfStream() {
    const Flow* const flow = existingFlow();
    if (flow == nullptr || !isValid() || getConnector() == nullptr) return false;
    if (!flow->isLeaving && !(flow->allowsHalfOpen && hasWrittingData())) return false;
    mReadingStops.fetch_or(kStreamHasEnded);
    updateReading();
    requestServing();
    return true;
}

}  // namespace vyn
