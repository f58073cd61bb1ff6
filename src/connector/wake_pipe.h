#pragma once

#include <atomic>

namespace vyn {

// Ends the loop's wait from any thread. The pipe never holds more than one byte, so a wake-up never
// blocks, however many come before the loop gets to read.
class WakePipe {
  public:
    // Opens a plain pipe. readEnd() is negative when that failed.
    WakePipe();
    ~WakePipe();
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;

    // The descriptor that is readable when the loop was woken.
    int readEnd() const { return mEnds[0]; }

    // Any thread.
    void wake();
    // Takes the byte of a wake-up. Loop thread, when readEnd() is readable.
    void drain();

  private:
    int mEnds[2] = {-1, -1};
    std::atomic<bool> mByteWaits{false};
};

}  // namespace vyn
