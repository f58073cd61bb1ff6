// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_wrapper.h"

#include "common/tick.h"

namespace vyn {

TimerWrapper::TimerWrapper(Timer* timer) : mTimer(timer) {}

void TimerWrapper::schedule(int64_t now) { mExpire = now + tick::delay(mInterval); }

bool TimerWrapper::trigger() {
    ++mCount;
    return mTimer->onTimer(mArg, mCount);
}

}  // namespace vyn
