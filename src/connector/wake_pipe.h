// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>

namespace vyn {

// Ends the loop's wait from any thread. The pipe never holds more than one byte, so a wake-up never
// blocks, however many come before the loop gets to read.
//
// Queues wake the loop while they hold their lock: the loop, which takes the lock to see what was
// queued, then never gets to end and destroy this pipe while a wake-up is still under way.
class WakePipe {
  public:
    // Opens a plain pipe. readEnd() is negative when that failed.
    WakePipe();
    ~WakePipe();
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;

    // The descriptor that is readable when the loop was woken.
    int readEnd() const { return mEnds[0]; }

    // The calling thread is the loop's from here on, or is not any more.
    void enterLoop();
    void leaveLoop();
    // Any thread. Whether the caller is on the loop's thread.
    bool isOnLoopThread() const;

    // Any thread. Does nothing on the loop's own thread, which is not waiting, unless its own
    // wake-ups count.
    void wake();
    // Loop thread. While they count, the loop wakes itself: for what its next turn is to see to
    // without waiting first.
    void countOwnWakes(bool count) { mOwnWakesCount = count; }
    // Takes the byte of a wake-up. Loop thread, when readEnd() is readable. Returns 0, or the errno
    // of a failure, after which it stays readable.
    [[nodiscard]] int drain();

    // Any thread. Whether a wake-up has failed, so that what it was for may still wait.
    bool hasFailed() const { return mHasFailed.load(std::memory_order_relaxed); }
    // Tries whether the loop can be woken again. Returns 0, or the errno of another failure.
    [[nodiscard]] int mend();

  private:
    int writeByte();

    int mEnds[2] = {-1, -1};
    std::atomic<bool> mByteWaits{false};
    std::atomic<bool> mHasFailed{false};
    // Marks the loop's thread; null while there is none.
    std::atomic<const void*> mLoopThread{nullptr};
    bool mOwnWakesCount = false;  // the loop thread's
};

}  // namespace vyn
