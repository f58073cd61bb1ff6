// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn {

class Worker;

// Writes the line.
void reportMissingPart(Worker* worker);

// In front of a check about one of a worker's parts, which does not say whose it is.
inline void tellIfMissing(const void* part, Worker* worker) {
    if (part == nullptr) reportMissingPart(worker);
}

}  // namespace vyn
