// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_wrapper.h"

namespace vyn {

TimerWrapper::TimerWrapper(Timer* timer)
    : mTimer(timer), mSequence(0), mRemoved(false), mIsToBeTold(false) {}

void TimerWrapper::schedule(int64_t now) { mExpire = now + mInterval; }

bool TimerWrapper::trigger() {
    ++mCount;
    return mTimer->onTimer(mArg, mCount);
}

}  // namespace vyn
