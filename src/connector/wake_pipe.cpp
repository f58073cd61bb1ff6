#include "connector/wake_pipe.h"

#include <unistd.h>

namespace vyn {

WakePipe::WakePipe() {
    if (pipe(mEnds) != 0) mEnds[0] = mEnds[1] = -1;
}

WakePipe::~WakePipe() {
    if (mEnds[0] < 0) return;
    close(mEnds[0]);
    close(mEnds[1]);
}

void WakePipe::wake() {
    if (mEnds[1] < 0 || mByteWaits.exchange(true, std::memory_order_acq_rel)) return;
    const char byte = 0;
    [[maybe_unused]] const auto written = write(mEnds[1], &byte, 1);
}

void WakePipe::drain() {
    char byte;
    [[maybe_unused]] const auto taken = read(mEnds[0], &byte, 1);
    // After the read: a wake-up between the two is covered by the turn that follows, which looks
    // at everything that was posted before it.
    mByteWaits.exchange(false, std::memory_order_acq_rel);
}

}  // namespace vyn
