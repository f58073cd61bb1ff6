// SPDX-License-Identifier: Apache-2.0

#include <vyn/timer.h>

namespace vyn {

Timer::~Timer() = default;

void Timer::onTimerRemoved() {}

}  // namespace vyn
