// SPDX-License-Identifier: Apache-2.0

#include <vyn/connector.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "connector/gather_scope.h"
#include "connector/loop_turn.h"
#include "connector/queued_write.h"
#include "connector/worker_flow.h"
#include "device/own_socket.h"

// Eager writing: at once, or gathered while a read is handled.

namespace vyn {

namespace {

// Copying more than these costs more than sending them does.
constexpr int kLargestCopied = 16 << 10;
constexpr int kMostCopied = 64 << 10;
constexpr int kMostGathered = 1 << 29;
constexpr int kFirstRoom = 1 << 10;
// The kernel buffers no more for a peer that does not read, so nobody can count on more being
// taken.
constexpr size_t kMostInATurn = 4 << 20;

}  // namespace

void GatherScope::flushGathering() {
    // By its address only, since it may be gone.
    for (Worker* worker = tFirst; worker != nullptr;
         worker = worker->existingFlow()->nextGathering) {
        if (worker != mReader) continue;
        flush(worker);
        break;
    }
    // A device that is written to here may gather again, for another one.
    while (tDepth == 1 && tFirst != nullptr) flush(tFirst);
}

void GatherScope::add(Worker* worker) {
    Worker::Flow& flow = *worker->existingFlow();
    if (std::exchange(flow.isGathering, true)) return;
    flow.nextGathering = std::exchange(tFirst, worker);
}

void GatherScope::remove(Worker* worker) {
    Worker::Flow* const flow = worker->existingFlow();
    if (flow == nullptr || !std::exchange(flow->isGathering, false)) return;
    Worker** link = &tFirst;
    while (*link != nullptr && *link != worker) link = &(*link)->existingFlow()->nextGathering;
    if (*link != nullptr) *link = flow->nextGathering;
}

void GatherScope::learnKind(Worker* worker) {
    Worker::Flow* const flow = worker->existingFlow();
    if (flow != nullptr && flow->isEager) flow->gathers = !isDatagramSocket(worker->getFd());
}

// As part of a destructor, this lets no want of memory pass.
void GatherScope::flush(Worker* worker) {
    remove(worker);
    const Worker* const outer = std::exchange(tFlushed, worker);
    try {
        worker->flushGathered();
    } catch (const std::bad_alloc&) {
        worker->endWithoutMemory(static_cast<int>(worker->pendingBytes()));
    }
    tFlushed = outer;
}

void Worker::setEagerWriting(bool on) {
    if (!on) flushGathered();
    {
        AutoBriefLock lock(mWriteLock);
        flow().isEager = on;
    }
    GatherScope::learnKind(this);
}

bool Worker::writeEagerly(const void* data, int len) {
    const Connector* const connector = getConnector();
    const bool isElsewhere = connector != nullptr && Connector::current() != connector;
    if (isElsewhere || len < 0) return queueRest(data, len, false);
    const bool gathers = GatherScope::isOpen() && existingFlow()->gathers;
    if (gathers) return gather(data, len);
    const bool isTooMuchNow = connector != nullptr && exceedsTurn(len);
    return isTooMuchNow ? queueRest(data, len, false) : writeBehindGathered(data, len);
}

// A producer that goes on until something waits would else keep its loop for as long as the peer
// reads as fast as it writes. What a read is answered with is bounded by itself.
bool Worker::exceedsTurn(int len) {
    Flow& flow = *existingFlow();
    const uint32_t turn = LoopTurn::number();
    if (turn == 0 || !flow.gathers) return false;
    if (std::exchange(flow.turn, turn) != turn) flow.givenInTurn = 0;
    flow.givenInTurn += static_cast<size_t>(len);
    return flow.givenInTurn > kMostInATurn;
}

// Gives the device what was gathered, and these bytes, unless something else waits already.
bool Worker::writeBehindGathered(const void* data, int len) {
    bool isIdle;
    {
        AutoBriefLock lock(mWriteLock);
        isIdle = mWriteQueue.first == nullptr;
        closeGathered();
    }
    if (!isIdle) return queueRest(data, len, false);
    WriteTail tail{data, len};
    if (isEnd(drainAside(false, &tail))) return false;
    if (tail.taken == len) return !tail.isLost;
    return queueRest(static_cast<const char*>(data) + tail.taken, len - tail.taken, tail.taken > 0);
}

// While the device takes what it is given, no more is gathered than is well copied. While it does
// not, all that one read is answered with becomes one write, however large.
bool Worker::gather(const void* data, int len) {
    bool isToLeave, isGathered, isTooMuchNow;
    {
        AutoBriefLock lock(mWriteLock);
        const int used = flow().gathered == nullptr ? 0 : flow().gathered->size;
        isToLeave = mWriteQueue.first == nullptr ? len >= kLargestCopied || used + len > kMostCopied
                                                 : len > kMostGathered - used;
        isGathered = !isToLeave && makeRoom(len);
        if (isGathered) {
            flow().gathered->add(data, len);
            GatherScope::add(this);
        }
        isTooMuchNow = hasTooManyBytes();
    }
    if (isToLeave) return writeBehindGathered(data, len);
    if (!isGathered) {
        endWithoutMemory(len);
    } else if (isTooMuchNow) {
        end(DisconnectReason::kOverflow);
    }
    return isGathered && !isTooMuchNow;
}

// False when there is no memory.
bool Worker::makeRoom(int len) {
    QueuedWrite*& gathered = flow().gathered;
    if (gathered != nullptr && gathered->room() >= len) return true;
    const int used = gathered == nullptr ? 0 : gathered->size;
    QueuedWrite* const larger =
        QueuedWrite::enlarge(gathered, std::max(kFirstRoom, 2 * (used + len)));
    if (larger == nullptr) return false;
    if (gathered == nullptr) mPendingWrites.fetch_add(1, std::memory_order_relaxed);
    gathered = larger;
    return true;
}

// What is gathered becomes a queued write like any other; with `isFirst` one that no self call goes
// before.
void Worker::closeGathered(bool isFirst) {
    Flow* const flow = existingFlow();
    if (flow == nullptr || flow->gathered == nullptr) return;
    QueuedWrite* const write = std::exchange(flow->gathered, nullptr);
    write->first = isFirst;
    link(write);
}

// Writes at once what was gathered, unless something waits already.
void Worker::flushGathered() {
    if (!isValid()) return;
    bool isIdle;
    {
        AutoBriefLock lock(mWriteLock);
        isIdle = mWriteQueue.first == nullptr;
        closeGathered();
    }
    const Drained drained = isIdle ? drainAside() : Drained::kAwaitsWritable;
    if (drained == Drained::kAll || isEnd(drained)) return;
    bool isTooMuchNow;
    {
        AutoBriefLock lock(mWriteLock);
        isTooMuchNow = isTooMuch();
    }
    onQueued(isTooMuchNow);
}

// For drains in the middle of something else: the listener hears of them from the loop.
Worker::Drained Worker::drainAside(bool onlyFirst, WriteTail* tail) {
    const Drained drained = drainOrEnd(onlyFirst, tail);
    if (isEnd(drained)) return drained;  // the worker may be gone
    const Flow* const flow = existingFlow();
    if (flow != nullptr && flow->hasNews) requestServing();
    return drained;
}

}  // namespace vyn
