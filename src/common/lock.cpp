#include <vyn/lock.h>

namespace vyn {

Lock::Lock() { pthread_mutex_init(&mMutex, nullptr); }

Lock::~Lock() = default;

void Lock::acquire() { pthread_mutex_lock(&mMutex); }

void Lock::release() { pthread_mutex_unlock(&mMutex); }

AutoLock::AutoLock(Lock& lock) : mHeld(true), mLock(&lock) { mLock->acquire(); }

AutoLock::~AutoLock() {
    if (mHeld) mLock->release();
}

}  // namespace vyn
