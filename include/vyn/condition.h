#pragma once

#include <vyn/export.h>
#include <vyn/thread_annotations.h>

namespace vyn {

// A mutex joined to a condition variable: a monitor. Any thread may call any operation; the mutex
// is not recursive. A waiter tests what it waits for in a loop, since a wait may also end without a
// signal:
//
//     condition.lock();
//     while (queue.empty()) condition.wait();
//     ... take from the queue ...
//     condition.unlock();
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

    // Wake one waiter, or all. The caller need not hold the mutex.
    int signal();
    int broadcast();

  private:
    friend class ThreadPool;
    struct Pair;

    // As wait(), with the mutex of another: its holders may then wait for two different things.
    int waitInside(Condition& other) VYN_REQUIRES(other);

    // Owned; null once destroyed. Volatile so that this last store into a dying object is made.
    Pair* volatile mPair;
};

}  // namespace vyn
