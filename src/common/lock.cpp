// SPDX-License-Identifier: Apache-2.0

#include <vyn/lock.h>

namespace vyn {

namespace {

constexpr int kTriesBeforeSleep = 100;

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

}  // namespace vyn
