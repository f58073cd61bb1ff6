#include <vyn/device.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>

#include "connector/queued_write.h"
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
    // What became of them; `isStream` for any socket of the library's.
    Sent sent{};
    bool isStream = false;
};

bool Worker::performWrite() {
    if (!checkValid()) return false;
    return drainOrEnd() == Drained::kAll;
}

bool Worker::hasWrittingData() { return mPendingWrites.load(std::memory_order_relaxed) > 0; }

bool Worker::drainsWithoutWaiting() { return OwnSocket::of(mDevice).exists(); }

Worker::Drained Worker::drainOrEnd(bool onlyFirst) {
    const Drained drained = drain(onlyFirst);
    if (isEnd(drained)) end(drained == Drained::kOverflow ? End::kOverflow : End::kWriteFailed);
    return drained;
}

// With `onlyFirst` those writes that nothing may go before. What others queue meanwhile is left for
// the next drain, or a fast producer would keep the loop here.
Worker::Drained Worker::drain(bool onlyFirst) {
    WriteBatch batch;
    batch.socket = OwnSocket::of(mDevice);
    if (batch.socket.exists() && batch.socket.fd < 0) return Drained::kAwaitsDescriptor;
    AutoLock lock(mWriteLock);
    if (mInFlight > 0) return Drained::kMore;  // the device has come back here from its write()
    Drained drained = Drained::kAll;
    const int before = waiting();
    for (int left = before; left > 0 && drained == Drained::kAll && fill(batch, onlyFirst);
         left -= batch.count) {
        mInFlight = static_cast<int8_t>(batch.count);
        mWriteLock.release();
        transmit(batch);
        drained = judge(batch);
        mWriteLock.acquire();
        mInFlight = 0;
        consume(batch);
    }
    if (waiting() > std::max(before, kMostPendingWrites)) return Drained::kOverflow;
    const bool isLeft = mWriteQueue.first != nullptr && (!onlyFirst || mWriteQueue.first->first);
    return drained == Drained::kAll && isLeft ? Drained::kMore : drained;
}

// False when there is nothing to write.
bool Worker::fill(WriteBatch& batch, bool onlyFirst) {
    while (mWriteQueue.first != nullptr && mWriteQueue.first->remaining() < 1) removeFirst();
    const int most = batch.socket.isStream && !onlyFirst ? WriteBatch::kMost : 1;
    batch.count = 0;
    batch.bytes = 0;
    for (QueuedWrite* write = mWriteQueue.first; write != nullptr && batch.count < most;
         write = write->next) {
        if (onlyFirst && !write->first) break;
        const auto size = static_cast<size_t>(write->remaining());
        batch.parts[batch.count++] = {write->rest(), size};
        batch.bytes += size;
    }
    return batch.count > 0;
}

void Worker::transmit(WriteBatch& batch) {
    if (batch.socket.exists()) {
        batch.sent = sendNow(batch.socket.fd, batch.parts, batch.count);
        batch.isStream = batch.socket.isStream;
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
    if (error == ENOBUFS || error == ENOMEM) return Drained::kAwaitsMemory;
    if (!batch.isStream) {
        VYN_LOG_ERROR << logging::ErrnoText{error} << "a datagram of " << batch.bytes
                      << " bytes can not be sent, it is dropped. " << this;
        batch.sent.count = static_cast<int>(batch.bytes);
        return Drained::kAll;
    }
    VYN_LOG_ERROR << logging::ErrnoText{error} << "can not write, " << mPendingWrites
                  << " queued writes are lost, disconnect it. " << this;
    return Drained::kFailed;
}

void Worker::consume(const WriteBatch& batch) {
    for (int left = batch.sent.count; left > 0;) {
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
}

// How many of the writes the device has not been given yet, or has not taken.
int Worker::waiting() const { return mPendingWrites.load(std::memory_order_relaxed) - mInFlight; }

void Worker::dropWrites() {
    AutoLock lock(mWriteLock);
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
