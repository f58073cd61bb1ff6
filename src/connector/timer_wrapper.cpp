// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_wrapper.h"

namespace vyn {

TimerWrapper::TimerWrapper(Timer* timer)
    : mTimer(timer),
      mArg(nullptr),
      mCount(0),
      mInterval(0),
      mExpire(0),
      mId(0),
      mHeapIndex(kNotInHeap) {}

bool TimerWrapper::trigger() {
    ++mCount;
    return mTimer->onTimer(mArg, mCount);
}

}  // namespace vyn
