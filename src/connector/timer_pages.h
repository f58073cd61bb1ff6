// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "connector/timer_wrapper.h"

namespace vyn {

// Holds timers, hands out their ids, and finds them by these. Not locked.
//
// Ids are handed out in sequence, so a timer lives on a page with those whose ids are next to its
// own. Finding it is finding its page, and pages are few enough for the processor's cache to hold
// the table that leads to them. A page goes with the last of its timers; it is small, as whichever
// of them lives longest keeps it.
class TimerPages {
  public:
    explicit TimerPages(int firstId) : mNextId(firstId) {}
    ~TimerPages();
    TimerPages(const TimerPages&) = delete;
    TimerPages& operator=(const TimerPages&) = delete;

    // Adds a timer with the next id. Changes nothing when there is no memory for it.
    TimerWrapper* add(Timer* timer);
    // A timer that is removed is not found any more. It stays where it is until it is freed.
    void remove(TimerWrapper* timer);
    static bool isRemoved(const TimerWrapper* timer);
    void free(TimerWrapper* timer);
    // Of the timers with this id, which may be several since ids come round, the one that was
    // added first; null when there is none.
    TimerWrapper* oldest(int id) const;
    size_t size() const { return mSize; }

    // Numbers the timers in the order of their addition.
    uint64_t sequenceOf(const TimerWrapper* timer) const;

  private:
    static constexpr uint32_t kTimers = 8;

    // Timers whose ids were handed out in a row.
    struct Page {
        TimerWrapper timers[kTimers];
        Page* next;       // of those with the same hash
        uint32_t round;   // how often ids had come round
        uint32_t number;  // the ids divided by kTimers
        // A bit for each timer.
        uint8_t present = 0;
        uint8_t notFreed = 0;
    };
    static_assert(kTimers <= 8);

    static uint32_t numberOf(int id) { return static_cast<uint32_t>(id) / kTimers; }
    static uint32_t placeOf(int id) { return static_cast<uint32_t>(id) % kTimers; }
    static uint8_t bitOf(int id) { return static_cast<uint8_t>(1U << placeOf(id)); }
    static Page* pageOf(const TimerWrapper* timer);

    void takeId();
    Page* makePage();
    size_t hash(uint32_t number) const;
    void link(Page* page);
    void unlink(Page* page);
    void grow();

    int mNextId;
    uint32_t mRound = 0;
    Page* mOpen = nullptr;       // the one that was made last, unless it has gone
    std::vector<Page*> mChains;  // a power of two of them, or none
    int mHashShift = 32;         // leaves as many bits as number the groups of chains
    size_t mPages = 0;
    size_t mSize = 0;  // of timers
};

}  // namespace vyn
