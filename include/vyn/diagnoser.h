// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <vyn/export.h>

namespace vyn {

// Measures how busy a loop is: the loop sets a mark before and after each wait, and the share of
// time between the last marks that was not spent waiting is the figure.
//
// record() belongs to one thread. Any thread may ask for the figure meanwhile; it is then advisory.
class VYN_API Diagnoser {
  public:
    // Keeps the last `capacity` marks; at least 1.
    explicit Diagnoser(int capacity);
    ~Diagnoser();
    Diagnoser(const Diagnoser&) = delete;
    Diagnoser& operator=(const Diagnoser&) = delete;

    // Sets a mark now: true when a wait has just ended, false when one is about to start.
    void record(bool awake);
    // The same at a given time, in nanoseconds of the monotonic clock.
    void record(bool awake, uint64_t time);

    // Any thread. Percent of the time between the oldest and the newest mark; 0 to 100.
    [[nodiscard]] int busyPercent() const;
    // Logs the marks, oldest first, at debug level: "X" for awake, "." for the others, in tens.
    void dump() const;

  private:
    // Atomic one by one, so that another thread may read while the loop writes.
    struct Record {
        std::atomic<uint64_t> time{0};
        std::atomic<bool> awake{false};
    };

    const Record& fromOldest(int index, int count) const;

    std::unique_ptr<Record[]> mRecords;
    int mCapacity;
    std::atomic<int> mStart{0};
    std::atomic<int> mCount{0};
};

}  // namespace vyn
