// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <ctime>
#include <type_traits>

#include <vyn/export.h>
#include <vyn/thread_annotations.h>

namespace vyn {

// A mutex joined to a condition variable: a monitor. Any thread may call any operation; the mutex
// is not recursive. A waiter tests what it waits for in a loop, since a wait may also end without a
// signal:
//
//     Condition::Holder holder(condition);
//     condition.wait([&] { return !queue.empty(); });
//     ... take from the queue ...
//
// Every operation returns the result of the pthread call behind it: 0, or an error number. A
// Condition that has been destroyed, as a global one is while the process exits, answers 0 and does
// nothing.
class VYN_API VYN_CAPABILITY("mutex") Condition {
  public:
    // Fatal where the system has no means for one. Should the process live on all the same
    // (logging::setAborter), this is as one that has been destroyed.
    Condition();
    // No thread may hold the mutex or be waiting.
    ~Condition();
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    // Take the mutex, and give it back.
    int lock() VYN_ACQUIRE();
    int unlock() VYN_RELEASE();

    // Waits for a signal; the caller holds the mutex, and holds it again when this returns.
    int wait() VYN_REQUIRES(this);
    // The same for at most `ms` milliseconds: ETIMEDOUT when they have passed, at once when `ms` is
    // negative. The end lies on the wall clock: setting the system's time lengthens or shortens the
    // wait.
    int wait(int ms) VYN_REQUIRES(this);

    // As wait(int), but the end lies on the monotonic clock, which nobody sets.
    int waitMonotonic(int ms) VYN_REQUIRES(this);

    // Waits until `done`, which is called with the mutex held, gives true. Returns 0, or the error
    // that ended the waiting.
    template <typename Done, std::enable_if_t<std::is_invocable_r_v<bool, Done&>, int> = 0>
    int wait(Done done) VYN_REQUIRES(this) {
        int error = 0;
        while (error == 0 && mPair != nullptr && !done()) error = wait();
        return error;
    }
    // The same for at most `ms` milliseconds of the monotonic clock, in all. Returns what `done`
    // gave in the end.
    template <typename Done, std::enable_if_t<std::is_invocable_r_v<bool, Done&>, int> = 0>
    bool wait(int ms, Done done) VYN_REQUIRES(this) {
        const timespec end = monotonicEnd(ms);
        for (int error = 0; !done(); error = waitUntil(end)) {
            if (error != 0 || mPair == nullptr) return false;
        }
        return true;
    }

    // Wake one waiter, or all. The caller need not hold the mutex.
    int signal();
    int broadcast();

    // Holds the mutex for the length of a scope. The Condition must outlive it.
    class VYN_SCOPED_CAPABILITY Holder {
      public:
        // Waits for the mutex. The condition is not owned.
        explicit Holder(Condition& condition) VYN_ACQUIRE(condition) : mCondition(condition) {
            mCondition.lock();
        }
        ~Holder() VYN_RELEASE() { mCondition.unlock(); }
        Holder(const Holder&) = delete;
        Holder& operator=(const Holder&) = delete;

      private:
        Condition& mCondition;
    };

  private:
    friend class ThreadPool;
    struct Pair;

    // The instant `ms` milliseconds from now on the monotonic clock, and as wait() until then.
    static timespec monotonicEnd(int ms);
    int waitUntil(const timespec& end) VYN_REQUIRES(this);

    // As wait(), with the mutex of another: its holders may then wait for two different things.
    int waitInside(Condition& other) VYN_REQUIRES(other);

    // Owned; null once destroyed. Volatile so that this last store into a dying object is made.
    Pair* volatile mPair;
};

}  // namespace vyn
