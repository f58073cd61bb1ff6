// SPDX-License-Identifier: Apache-2.0

#include <vyn/lock.h>

#include <chrono>
#include <thread>

namespace vyn {

namespace {

constexpr int kTriesBeforeSleep = 100;
constexpr std::chrono::microseconds kSleep{50};

// Leaves the mutex alone for a moment, for the thread that has it to give it back.
void holdOn() {
    for (int i = 0; i < 20; ++i) __asm__ volatile("");
}

}  // namespace

Lock::Lock() = default;

Lock::~Lock() = default;

// What locks guard mostly takes less than a tenth of a microsecond, and to sleep and be woken takes
// several.
void Lock::acquire() {
    for (int i = 0; i < kTriesBeforeSleep; ++i) {
        if (pthread_mutex_trylock(&mMutex) == 0) return;
        holdOn();
    }
    pthread_mutex_lock(&mMutex);
}

void Lock::release() { pthread_mutex_unlock(&mMutex); }

AutoLock::AutoLock(Lock& lock) : mHeld(true), mLock(&lock) { mLock->acquire(); }

AutoLock::~AutoLock() {
    if (mHeld) mLock->release();
}

void BriefLock::acquireFromAnother() {
    for (int tries = 1; mIsHeld.exchange(true, std::memory_order_acquire); ++tries) {
        if (tries > kTriesBeforeSleep) std::this_thread::sleep_for(kSleep);
    }
}

}  // namespace vyn
