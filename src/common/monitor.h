// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/thread_annotations.h>

#include <condition_variable>
#include <mutex>

namespace vyn {

// A mutex with one condition, for the library's own use: all is inline, and made without memory.
class VYN_CAPABILITY("mutex") Monitor {
  public:
    void acquire() VYN_ACQUIRE() { mMutex.lock(); }
    void release() VYN_RELEASE() { mMutex.unlock(); }

    // Gives the mutex back until `done`, which is called with it held, gives true.
    template <typename Done>
    void wait(Done done) VYN_REQUIRES(this) {
        std::unique_lock<std::mutex> held(mMutex, std::adopt_lock);
        ++mWaiters;
        mChanged.wait(held, done);
        --mWaiters;
        held.release();
    }
    // Has them all look again.
    void wakeWaiters() VYN_REQUIRES(this) {
        if (mWaiters > 0) mChanged.notify_all();
    }
    bool hasWaiters() const VYN_REQUIRES(this) { return mWaiters > 0; }

    // Calls `function` without the mutex.
    template <typename Function>
    auto without(Function function) VYN_REQUIRES(this) {
        const Released released(*this);
        return function();
    }

  private:
    // Takes it again also when an exception of the application's passes.
    class Released {
      public:
        explicit Released(Monitor& monitor) : mMonitor(monitor) { mMonitor.mMutex.unlock(); }
        ~Released() { mMonitor.mMutex.lock(); }
        Released(const Released&) = delete;
        Released& operator=(const Released&) = delete;

      private:
        Monitor& mMonitor;
    };

    std::mutex mMutex;
    std::condition_variable mChanged;
    int mWaiters = 0;
};

// Holds a Monitor for the length of a scope.
class VYN_SCOPED_CAPABILITY AutoMonitor {
  public:
    explicit AutoMonitor(Monitor& monitor) VYN_ACQUIRE(monitor) : mMonitor(monitor) {
        mMonitor.acquire();
    }
    ~AutoMonitor() VYN_RELEASE() { mMonitor.release(); }
    AutoMonitor(const AutoMonitor&) = delete;
    AutoMonitor& operator=(const AutoMonitor&) = delete;

  private:
    Monitor& mMonitor;
};

}  // namespace vyn
