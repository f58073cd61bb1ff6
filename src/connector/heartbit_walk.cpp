// SPDX-License-Identifier: Apache-2.0

#include "connector/heartbit_walk.h"

#include <vyn/worker.h>

#include "common/tick.h"
#include "connector/fetch_ahead.h"
#include "connector/worker_registry.h"

namespace vyn {

namespace {

// What a worker is told of the time is behind it by what so many of them take, at most.
constexpr int kWorkersPerLook = 16;
// The walk takes about as long as its workers take to come into the processor's cache.
constexpr size_t kFetchedAhead = 8;

}  // namespace

void HeartbitWalk::run(int64_t readUntil) {
    takeSnapshot();
    int64_t now = 0;
    int left = 0;  // of those that this `now` serves
    for (size_t i = 0; i < mSnapshot.size(); ++i) {
        if (i + kFetchedAhead < mSnapshot.size()) {
            fetchAhead(mSnapshot[i + kFetchedAhead].worker, sizeof(Worker));
        }
        const Registration& registration = mSnapshot[i];
        if (hasEnded(registration)) continue;
        if (left == 0) {
            now = tick::now();
            left = kWorkersPerLook;
        }
        left = check(registration, readUntil, now) ? 0 : left - 1;
    }
}

void HeartbitWalk::takeSnapshot() {
    const uint32_t arrivals = mWorkers.arrivals();
    const uint32_t removals = mWorkers.removals();
    if (arrivals == mArrivals && removals == mRemovals) return;
    mWorkers.listReady(mSnapshot);
    mArrivals = arrivals;
    mRemovals = removals;
}

// Returns whether the executor was called, which may have taken its time.
bool HeartbitWalk::check(const Registration& registration, int64_t readUntil, int64_t now) {
    Worker* const worker = registration.worker;
    if (!worker->isValid() || worker->isConnecting() || worker->isLeaving()) return false;
    const long silence = worker->silenceUntil(readUntil);
    worker->keepAlive(now);
    // That may have found the peer gone, and the executor acted on it.
    return !hasEnded(registration) && worker->reportSilence(silence);
}

bool HeartbitWalk::hasEnded(const Registration& registration) {
    return mWorkers.removals() != mRemovals && !mWorkers.holds(registration);
}

}  // namespace vyn
