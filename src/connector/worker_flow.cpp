// SPDX-License-Identifier: Apache-2.0

#include "connector/worker_flow.h"

#include <vyn/connector.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>

#include "common/tick.h"
#include "connector/queued_write.h"
#include "connector/worker_tick.h"

// What an application does about slow peers; see worker_end.cpp for how a connection ends.

namespace vyn {

namespace {

// Answers to a large read may be many times as large.
constexpr size_t kMaxPendingOfLargeReads = 16 << 20;

}  // namespace

WriteListener::~WriteListener() = default;

Worker::Flow& Worker::flow() {
    Flow* flow = existingFlow();
    if (flow == nullptr) {
        flow = new Flow;
        mFlow.store(flow, std::memory_order_release);
    }
    return *flow;
}

int Worker::pendingWrites() const { return mPendingWrites.load(std::memory_order_relaxed); }

size_t Worker::pendingBytes() {
    AutoBriefLock lock(mWriteLock);
    return bytesBehind(0);
}

long Worker::sinceLastSent() const {
    return helper::tickDifference(helper::mtick(), mLastSentTick.load(std::memory_order_relaxed));
}

void Worker::setMaxPendingBytes(size_t bytes) {
    AutoBriefLock lock(mWriteLock);
    flow().maxPendingBytes = bytes;
}

void Worker::setWriteListener(WriteListener* listener, size_t lowMark) {
    AutoBriefLock lock(mWriteLock);
    flow().listener = listener;
    flow().lowMark = lowMark;
    flow().wasAboveMark = lowMark > 0 && bytesBehind(0) >= lowMark;
}

// After some of the queue was taken.
void Worker::noteWritten() {
    Flow* const flow = existingFlow();
    if (flow == nullptr || flow->listener == nullptr) return;
    const bool isBelowMark = flow->wasAboveMark && bytesBehind(0) < flow->lowMark;
    if (isBelowMark) flow->wasAboveMark = false;
    if (isBelowMark || mPendingWrites.load(std::memory_order_relaxed) == 0) flow->hasNews = true;
}

void Worker::reportWritten() {
    Flow* const flow = existingFlow();
    if (flow == nullptr || !flow->hasNews.exchange(false) || !isValid()) return;
    WriteListener* listener;
    {
        AutoBriefLock lock(mWriteLock);
        listener = flow->listener;
    }
    if (listener != nullptr) listener->onWritten(this);
}

bool Worker::needsServing() {
    if (hasWrittingData()) return true;
    const Flow* const flow = existingFlow();
    return flow != nullptr && (flow->hasNews || flow->isLeaving ||
                               (mReadingStops.load(std::memory_order_relaxed) & kStreamHasEnded));
}

void Worker::requestServing() {
    Connector* const connector = getConnector();
    if (connector != nullptr) connector->queueWrite(this);
}

void Worker::pauseReading() {
    {
        AutoBriefLock lock(mWriteLock);
        Flow& own = flow();
        if (own.isLeaving) return;
        if ((mReadingStops.fetch_or(kPausedByApplication) & kPausedByApplication) != 0) return;
        own.pausedAt = tick32();
    }
    updateReading();
}

void Worker::resumeReading() {
    {
        AutoBriefLock lock(mWriteLock);
        const auto running = static_cast<unsigned char>(~kPausedByApplication);
        if ((mReadingStops.fetch_and(running) & kPausedByApplication) == 0) return;
        // The peer's silence begins where it was interrupted.
        const long silent =
            helper::tickDifference(flow().pausedAt, mLastReadTick.load(std::memory_order_relaxed));
        mLastReadTick.store(static_cast<int32_t>(helper::mtick() - silent),
                            std::memory_order_relaxed);
    }
    updateReading();
}

bool Worker::isReadingPaused() const {
    const unsigned char stops = mReadingStops.load(std::memory_order_relaxed);
    return (stops & (kPausedByApplication | kConnecting)) == kPausedByApplication;
}

bool Worker::isReading() const {
    return mReadingStops.load(std::memory_order_relaxed) == 0 || isConnecting();
}

bool Worker::isConnecting() const {
    return (mReadingStops.load(std::memory_order_relaxed) & kConnecting) != 0;
}

void Worker::setConnecting(bool connecting) {
    if (connecting) {
        mReadingStops.fetch_or(kConnecting);
    } else {
        AutoBriefLock lock(mWriteLock);
        const int32_t now = tick32();
        mLastReadTick.store(now, std::memory_order_relaxed);
        mLastSentTick.store(now, std::memory_order_relaxed);
        if (Flow* const flow = existingFlow()) flow->pausedAt = now;
        mReadingStops.fetch_and(static_cast<unsigned char>(~kConnecting));
    }
    updateReading();
}

void Worker::updateReading() {
    Connector* const connector = getConnector();
    if (connector != nullptr) connector->updateReadingOf(this);
}

// How long the peer has been silent by then, not counting pauses.
long Worker::silenceUntil(int64_t readUntil) {
    if (readUntil == INT64_MIN) return 0;
    long until = tick::toTick(readUntil);
    if (isReadingPaused()) {
        AutoBriefLock lock(mWriteLock);
        until = flow().pausedAt;
    }
    const int32_t lastRead = mLastReadTick.load(std::memory_order_relaxed);
    return std::max(helper::tickDifference(until, lastRead), 0L);
}

void Worker::setReadSize(int bytes) {
    AutoBriefLock lock(mWriteLock);
    flow().readSize = bytes;
    if (flow().maxPendingBytes == 0) flow().maxPendingBytes = kMaxPendingOfLargeReads;
}

int Worker::readSize() const {
    const Flow* const flow = existingFlow();
    return flow == nullptr ? 0 : flow->readSize;
}

}  // namespace vyn
