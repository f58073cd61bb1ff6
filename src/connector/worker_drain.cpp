// SPDX-License-Identifier: Apache-2.0

#include <vyn/device.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>

#include "connector/queued_write.h"
#include "connector/worker_flow.h"
#include "connector/worker_tick.h"
#include "device/drain_scope.h"
#include "device/own_socket.h"

// How a write queue leaves. Whatever device it is, the queue's lock is not held while it writes, so
// that nobody who queues has to wait for it.

namespace vyn {

// The writes at the front of the queue that are on their way. Several to a stream of the library's
// own; any other device gets each by itself.
struct Worker::WriteBatch {
    static constexpr int kMost = 64;

    OwnSocket socket;
    iovec parts[kMost];
    int count = 0;
    size_t bytes = 0;
    WriteTail* tail = nullptr;  // the last part, when it is not one of the queue
    // What became of them; `isStream` for any socket of the library's.
    Sent sent{};
    bool isStream = false;

    void add(const void* data, int size) {
        parts[count++] = {const_cast<void*>(data), static_cast<size_t>(size)};
        bytes += static_cast<size_t>(size);
    }
};

bool Worker::performWrite() {
    if (!checkValid()) return false;
    const Drained drained = serveWrites();
    if (!isEnd(drained)) reportWritten();
    return drained == Drained::kAll;
}

bool Worker::hasWrittingData() { return mPendingWrites.load(std::memory_order_relaxed) > 0; }

bool Worker::drainsWithoutWaiting() { return OwnSocket::of(mDevice).exists(); }

Worker::Drained Worker::serveWrites() {
    const Drained drained = drainOrEnd(false, nullptr);
    return isEnd(drained) || existingFlow() == nullptr ? drained : leave(drained);
}

Worker::Drained Worker::drainOrEnd(bool onlyFirst, WriteTail* tail) {
    const Drained drained = drain(onlyFirst, tail);
    if (drained == Drained::kFailed) end(DisconnectReason::kError);
    if (drained == Drained::kOverflow) end(DisconnectReason::kOverflow);
    return drained;
}

// With `onlyFirst` those writes that nothing may go before. What others queue meanwhile is left for
// the next drain, or a fast producer would keep the loop here.
Worker::Drained Worker::drain(bool onlyFirst, WriteTail* tail) {
    WriteBatch batch;
    batch.socket = OwnSocket::of(mDevice);
    if (batch.socket.exists() && batch.socket.fd < 0) return Drained::kAwaitsRead;
    const Flow* const flow = existingFlow();
    if (flow != nullptr && flow->cannotWrite) return Drained::kAwaitsRead;
    AutoBriefLock lock(mWriteLock);
    if (mDraining) return Drained::kMore;  // the device has come back here from its write()
    mDraining = true;
    closeGathered();
    Drained drained = Drained::kAll;
    const int before = waiting();
    for (int left = before + (tail == nullptr ? 0 : 1);
         left > 0 && drained == Drained::kAll && fill(batch, onlyFirst, tail);
         left -= batch.count) {
        mInFlight = static_cast<int8_t>(batch.tail == nullptr ? batch.count : batch.count - 1);
        mWriteLock.release();
        try {
            transmit(batch);
            drained = judge(batch);
        } catch (...) {  // of the application's device, which has taken nothing then
            mWriteLock.acquire();
            mInFlight = 0;
            mDraining = false;
            throw;
        }
        mWriteLock.acquire();
        mInFlight = 0;
        consume(batch);
    }
    mDraining = false;
    if (before > 0) noteWritten();
    if (waiting() > std::max(before, kMostPendingWrites)) return Drained::kOverflow;
    const bool isLeft = mWriteQueue.first != nullptr && (!onlyFirst || mWriteQueue.first->first);
    return drained == Drained::kAll && isLeft ? Drained::kMore : drained;
}

// False when there is nothing to write.
bool Worker::fill(WriteBatch& batch, bool onlyFirst, WriteTail* tail) {
    while (mWriteQueue.first != nullptr && mWriteQueue.first->remaining() < 1) removeFirst();
    const int most = batch.socket.isStream && !onlyFirst ? WriteBatch::kMost : 1;
    batch.count = 0;
    batch.bytes = 0;
    batch.tail = nullptr;
    const QueuedWrite* write = mWriteQueue.first;
    for (; write != nullptr && batch.count < most && (write->first || !onlyFirst);
         write = write->next) {
        batch.add(write->rest(), write->remaining());
    }
    if (tail == nullptr || write != nullptr || batch.count == most || tail->taken > 0) {
        return batch.count > 0;
    }
    batch.tail = tail;
    batch.add(tail->data, tail->len);
    return true;
}

void Worker::transmit(WriteBatch& batch) {
    if (batch.socket.exists()) {
        batch.sent = sendNow(batch.socket.fd, batch.parts, batch.count);
        batch.isStream = batch.socket.isStream;
        if (batch.sent.count > 0) mLastSentTick.store(roughTick32(), std::memory_order_relaxed);
        return;
    }
    DrainScope scope(mDevice);
    const int count = instantWrite(batch.parts[0].iov_base, static_cast<int>(batch.bytes));
    batch.sent = {std::min(count, static_cast<int>(batch.bytes)), count < 1 ? scope.error : 0};
    batch.isStream = scope.isStream;
}

// Says what is to be done about what was not sent. A datagram that can never be sent counts as
// sent from here on.
Worker::Drained Worker::judge(WriteBatch& batch) {
    const bool isWhole =
        batch.sent.count >= 0 && static_cast<size_t>(batch.sent.count) == batch.bytes;
    if (isWhole) return Drained::kAll;
    const int error = batch.sent.error;
    if (batch.sent.count > 0 || error == 0 || error == EAGAIN) return Drained::kAwaitsWritable;
    if (error == ENOBUFS || error == ENOMEM) return Drained::kAwaitsMoment;
    if (batch.isStream) return judgeEnd(error);
    VYN_LOG_ERROR << logging::ErrnoText{error} << "a datagram of " << batch.bytes
                  << " bytes can not be sent, it is dropped. " << this;
    batch.sent.count = static_cast<int>(batch.bytes);
    if (batch.tail != nullptr) batch.tail->isLost = true;
    return Drained::kAll;
}

// The last bytes of a peer come before its end.
Worker::Drained Worker::judgeEnd(int error) {
    if (isReading() && hasUnreadBytes(getFd())) return Drained::kAwaitsMoment;
    Flow* const flow = isReadingPaused() ? existingFlow() : nullptr;
    if (flow != nullptr) {
        VYN_LOG_ERROR << logging::ErrnoText{error} << "can not write, " << mPendingWrites
                      << " queued writes are lost, disconnect it when it has been read. " << this;
        flow->cannotWrite = true;
        return Drained::kAwaitsRead;
    }
    VYN_LOG_ERROR << logging::ErrnoText{error} << "can not write, " << mPendingWrites
                  << " queued writes are lost, disconnect it. " << this;
    setDisconnectReason(DisconnectReason::kError, error);
    return Drained::kFailed;
}

void Worker::consume(const WriteBatch& batch) {
    int left = std::max(batch.sent.count, 0);
    for (int writes = batch.tail == nullptr ? batch.count : batch.count - 1; writes > 0 && left > 0;
         --writes) {
        QueuedWrite* const write = mWriteQueue.first;
        const int taken = std::min(left, write->remaining());
        write->offset += taken;
        left -= taken;
        if (write->remaining() > 0) {
            write->first = true;
        } else {
            removeFirst();
        }
    }
    if (batch.tail != nullptr) batch.tail->taken = left;
}

void Worker::dropWrites() {
    AutoBriefLock lock(mWriteLock);
    closeGathered();
    while (mWriteQueue.first != nullptr) removeFirst();
}

void Worker::removeFirst() {
    QueuedWrite* const write = mWriteQueue.first;
    mWriteQueue.first = write->next;
    if (mWriteQueue.first == nullptr) mWriteQueue.last = nullptr;
    mPendingWrites.fetch_sub(1, std::memory_order_relaxed);
    QueuedWrite::destroy(write);
}

}  // namespace vyn
