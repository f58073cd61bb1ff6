// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/thread_annotations.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace vyn {

// A lock for what one thread does very often and others seldom, in a few instructions each time: it
// is taken by one atomic operation and given back by none, which is half of what a mutex costs.
// Whoever finds it taken looks again, and after some time sleeps in between, as the holder may not
// be run.
class VYN_CAPABILITY("mutex") BriefLock {
  public:
    void acquire() VYN_ACQUIRE() {
        for (int tries = 1; mIsHeld.exchange(true, std::memory_order_acquire); ++tries) {
            if (tries > kTriesBeforeSleep) std::this_thread::sleep_for(kSleep);
        }
    }
    void release() VYN_RELEASE() { mIsHeld.store(false, std::memory_order_release); }

  private:
    static constexpr int kTriesBeforeSleep = 100;
    static constexpr std::chrono::microseconds kSleep{50};

    std::atomic<bool> mIsHeld{false};
};

// Holds a BriefLock for the length of a scope.
class VYN_SCOPED_CAPABILITY AutoBriefLock {
  public:
    explicit AutoBriefLock(BriefLock& lock) VYN_ACQUIRE(lock) : mLock(lock) { mLock.acquire(); }
    ~AutoBriefLock() VYN_RELEASE() { mLock.release(); }
    AutoBriefLock(const AutoBriefLock&) = delete;
    AutoBriefLock& operator=(const AutoBriefLock&) = delete;

  private:
    BriefLock& mLock;
};

}  // namespace vyn
