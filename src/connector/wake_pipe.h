// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstdint>

#include "connector/epoll.h"

namespace vyn {

// Ends the loop's wait from any thread.
//
// The pipe holds one byte, which nobody ever reads, so its read end is always readable. The loop's
// epoll set reports it once, and then not until it is armed again: that is a wake-up. It never
// blocks, leaves nothing for the loop to read, and one that is made serves all that come before the
// loop gets to hear of it. None relies on one that another thread has yet to make.
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

    // Opens a plain pipe. readEnd() is negative when that failed. The set is the loop's, is not
    // owned, and is to outlive the pipe. Nobody is woken before mend().
    explicit WakePipe(Epoll& epoll);
    ~WakePipe();
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;

    // The descriptor whose event tells the loop that it was woken.
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
    // Loop thread. Takes note of readEnd()'s event.
    void onEvent();

    // Any thread. Whether a wake-up has failed, so that what it was for may still wait.
    bool hasFailed() const { return mHasFailed.load(std::memory_order_relaxed); }
    // Loop thread. Sees to it that the loop can be woken: at first, and when that has failed.
    // Returns 0, or the errno of another failure.
    [[nodiscard]] int mend();
    // Loop thread, when a wait has ended without an event. Whether somebody was to end it, and the
    // pipe's byte is gone; that is a failure, as it is when the pipe is not watched any more.
    [[nodiscard]] bool isFoundEmpty();

    // Loop thread. Puts the read end into a set that is to take the place of the loop's, so that
    // the first wait there ends at once: a wake-up may still go to the old one. Returns 0, or the
    // errno of a refusal.
    [[nodiscard]] int addTo(Epoll& epoll) const;
    // Any thread. Has the loop woken, whether it was already or not. Returns 0, or the errno with
    // which epoll refused.
    int arm();

  private:
    int fill();

    Epoll& mEpoll;
    int mEnds[2] = {-1, -1};
    // Events that the loop has taken note of; and after how many the read end was last armed. While
    // they are equal, the next event is to come, as at first that of mend().
    std::atomic<uint32_t> mEvents{0};
    std::atomic<uint32_t> mArmedAfter{0};
    std::atomic<bool> mHasFailed{false};
    std::atomic<int> mWakings{0};
    // Marks the loop's thread; null while there is none.
    std::atomic<const void*> mLoopThread{nullptr};
    // The loop thread's.
    bool mOwnWakesCount = false;
    bool mHasByte = false;
};

}  // namespace vyn
