// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>

#include <atomic>

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

    // Take the mutex, waiting while another thread has it, and give it back.
    void acquire() VYN_ACQUIRE();
    void release() VYN_RELEASE();

    // Does nothing; tells the thread-safety analysis that the caller holds this lock already.
    void assertHeld() VYN_ASSERT_HELD(this) {}

  private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;  // which can not fail
};

// Holds a Lock for the length of a scope. The Lock is not owned and must outlive the holder.
class VYN_API VYN_SCOPED_CAPABILITY AutoLock {
  public:
    // Acquires.
    explicit AutoLock(Lock& lock) VYN_ACQUIRE(lock);
    ~AutoLock() VYN_RELEASE();
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

  private:
    bool mHeld;
    Lock* mLock;
};

// A lock of one byte for what one thread does very often and others seldom, in a few instructions
// each time: it is taken by one atomic operation and given back by none, which is half of what a
// mutex costs. Whoever finds it taken looks again, and after some time sleeps in between, as the
// holder may not be run. Not recursive. Any thread.
class VYN_API VYN_CAPABILITY("mutex") BriefLock {
  public:
    BriefLock() = default;
    BriefLock(const BriefLock&) = delete;
    BriefLock& operator=(const BriefLock&) = delete;

    // Take it, waiting while another thread has it, and give it back.
    void acquire() VYN_ACQUIRE() {
        if (mIsHeld.exchange(true, std::memory_order_acquire)) acquireFromAnother();
    }
    void release() VYN_RELEASE() { mIsHeld.store(false, std::memory_order_release); }

  private:
    void acquireFromAnother();

    std::atomic<bool> mIsHeld{false};
};

// Holds a BriefLock for the length of a scope. The lock is not owned and must outlive the holder.
class VYN_SCOPED_CAPABILITY AutoBriefLock {
  public:
    // Acquires.
    explicit AutoBriefLock(BriefLock& lock) VYN_ACQUIRE(lock) : mLock(lock) { mLock.acquire(); }
    ~AutoBriefLock() VYN_RELEASE() { mLock.release(); }
    AutoBriefLock(const AutoBriefLock&) = delete;
    AutoBriefLock& operator=(const AutoBriefLock&) = delete;

  private:
    BriefLock& mLock;
};

}  // namespace vyn
