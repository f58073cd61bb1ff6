// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "connector/worker_entry.h"

namespace vyn {

class WorkerRegistry;

// Has a connector's workers look for silent peers, five times a second and most often in vain: so a
// walk over them copies their list only when workers have come or gone, takes no lock while that
// stays so, and does not look at the clock for each.
class HeartbitWalk {
  public:
    // Not owned.
    explicit HeartbitWalk(WorkerRegistry& workers) : mWorkers(workers) {}

    // Calls the workers that are ready and valid, in the order in which they were added. Any of
    // them may be removed, and deleted, meanwhile. What peers sent until `readUntil`, a
    // tick::now(), has been read; INT64_MIN for nothing yet. Loop thread.
    void run(int64_t readUntil);

  private:
    void takeSnapshot();
    bool check(const Registration& registration, int64_t readUntil, int64_t now);
    bool hasEnded(const Registration& registration);

    WorkerRegistry& mWorkers;
    std::vector<Registration> mSnapshot;
    // The counts of the registry that the snapshot is of.
    uint32_t mArrivals = 0;
    uint32_t mRemovals = 0;
};

}  // namespace vyn
