#include <vyn/timer.h>

namespace vyn {

Timer::~Timer() = default;

void Timer::onTimerRemoved() {}

}  // namespace vyn
