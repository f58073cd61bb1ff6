// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/worker.h>

#include <atomic>
#include <cstdint>

namespace vyn {

// What a worker keeps beside its queue when one of the services for slow peers or for an orderly
// end is used. Most connections use none, and have none of this.
struct Worker::Flow {
    // The loop's thread's.
    bool isEager = false;
    bool gathers = true;
    bool isGathering = false;  // in the list of those to flush, see GatherScope
    Worker* nextGathering = nullptr;
    int readSize = 0;
    uint32_t turn = 0;       // the last one in which the device was given something eagerly
    size_t givenInTurn = 0;  // and how many bytes in it, reads left out

    // Guarded by the queue's lock.
    QueuedWrite* gathered = nullptr;  // open for more, behind all that is in the list
    size_t maxPendingBytes = 0;
    WriteListener* listener = nullptr;
    size_t lowMark = 0;
    bool wasAboveMark = false;
    int32_t pausedAt = 0;

    // Set by any thread.
    std::atomic<bool> hasNews{false};  // for the listener
    std::atomic<bool> isLeaving{false};
    std::atomic<int64_t> leaveUntil{0};
    std::atomic<bool> allowsHalfOpen{false};

    // The loop's thread's.
    bool sendEnded = false;
    bool cannotWrite = false;  // while it is not to be read
};

// Why a worker does not read.
constexpr unsigned char kPausedByApplication = 1;
constexpr unsigned char kStreamHasEnded = 2;
// Then it does all the same: there is nothing to read but the news that there is a connection.
constexpr unsigned char kConnecting = 4;

}  // namespace vyn
