// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>

namespace vyn {

// Ends the loop's wait from any thread. The pipe never holds more than one byte, so a wake-up never
// blocks, however many come before the loop gets to read.
//
// The loop may find what was queued before it is woken for that, end, and destroy this pipe. So
// whoever wakes it either holds a lock which the loop takes to look, or has a Waking.
class WakePipe {
  public:
    // While one exists, the pipe is not destroyed: the destructor waits. To be made before the loop
    // can see what it is to be woken for.
    class Waking {
      public:
        explicit Waking(WakePipe& pipe) : mPipe(pipe) {
            mPipe.mWakings.fetch_add(1, std::memory_order_relaxed);
        }
        ~Waking() { mPipe.mWakings.fetch_sub(1, std::memory_order_release); }
        Waking(const Waking&) = delete;
        Waking& operator=(const Waking&) = delete;

      private:
        WakePipe& mPipe;
    };

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
    // Any thread. Whether the caller serves some loop.
    static bool isOnAnyLoopThread();

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
    std::atomic<int> mWakings{0};
    // Marks the loop's thread; null while there is none.
    std::atomic<const void*> mLoopThread{nullptr};
    bool mOwnWakesCount = false;  // the loop thread's
};

}  // namespace vyn
