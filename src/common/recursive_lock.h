// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/thread_annotations.h>

#include <mutex>

namespace vyn {

// A mutex that its holder may take again: for what is held over callbacks into the application,
// which may call back in.
class VYN_CAPABILITY("mutex") RecursiveLock {
  public:
    void acquire() VYN_ACQUIRE() { mMutex.lock(); }
    void release() VYN_RELEASE() { mMutex.unlock(); }

  private:
    std::recursive_mutex mMutex;
};

// Holds a RecursiveLock for the length of a scope.
class VYN_SCOPED_CAPABILITY AutoRecursiveLock {
  public:
    explicit AutoRecursiveLock(RecursiveLock& lock) VYN_ACQUIRE(lock) : mLock(lock) {
        mLock.acquire();
    }
    ~AutoRecursiveLock() VYN_RELEASE() { mLock.release(); }
    AutoRecursiveLock(const AutoRecursiveLock&) = delete;
    AutoRecursiveLock& operator=(const AutoRecursiveLock&) = delete;

  private:
    RecursiveLock& mLock;
};

}  // namespace vyn
