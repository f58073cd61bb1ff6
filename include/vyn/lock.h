#pragma once

#include <pthread.h>

#include <vyn/export.h>
#include <vyn/thread_annotations.h>

namespace vyn {

// A mutex. Not recursive: a thread that acquires a Lock it already holds blocks for ever.
// Any thread may call any operation; the thread that acquired is the one that releases.
class VYN_API VYN_CAPABILITY("mutex") Lock {
  public:
    Lock();
    // Does not destroy the mutex: a Lock may outlive the code that uses it at process exit.
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void acquire() VYN_ACQUIRE() { pthread_mutex_lock(&mMutex); }
    void release() VYN_RELEASE() { pthread_mutex_unlock(&mMutex); }

    // Does nothing; tells the thread-safety analysis that the caller holds this lock already.
    void assertHeld() VYN_ASSERT_HELD(this) {}

  private:
    pthread_mutex_t mMutex;
};

// Holds a Lock for the length of a scope. The Lock is not owned and must outlive the holder.
class VYN_API VYN_SCOPED_CAPABILITY AutoLock {
  public:
    explicit AutoLock(Lock& lock) VYN_ACQUIRE(lock) : mHeld(true), mLock(&lock) {
        mLock->acquire();
    }
    ~AutoLock() VYN_RELEASE() {
        if (mHeld) mLock->release();
    }
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

  private:
    bool mHeld;
    Lock* mLock;
};

}  // namespace vyn
