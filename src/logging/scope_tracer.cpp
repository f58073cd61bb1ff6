// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>

#include <limits>

#include "common/tick.h"
#include "logging/line_text.h"

namespace logging {

namespace {

constexpr int64_t kNanosecondsPerMs = 1000000;

// Beyond what 64 bits hold, its limit.
int64_t nanosecondsOf(int64_t ms) {
    using Limits = std::numeric_limits<int64_t>;
    int64_t nanoseconds = 0;
    const bool overflows = __builtin_mul_overflow(ms, kNanosecondsPerMs, &nanoseconds);
    return !overflows ? nanoseconds : ms < 0 ? Limits::min() : Limits::max();
}

}  // namespace

ScopeTracer::ScopeTracer(const char* file, const char* function, int line, int level,
                         const char* name)
    : mFile(file),
      mFunction(function),
      mLine(line),
      mLevel(level),
      mName(text::orElse(name, "")),
      mStart(vyn::tick::nanoseconds()) {
    if (!passes(mLevel)) return;
    detail::Line(kTag, mFile, mFunction, mLine, mLevel).stream() << "enter " << mName;
}

ScopeTracer::~ScopeTracer() {
    if (!passes(mLevel)) return;
    const int64_t elapsed = vyn::tick::nanoseconds() - mStart;
    detail::Line(kTag, mFile, mFunction, mLine, mLevel).stream()
        << "leave " << mName << ", " << elapsed / kNanosecondsPerMs << " ms";
}

TimerScopeTracer::TimerScopeTracer(const char* file, const char* function, int line, int level,
                                   const char* name, long thresholdMs)
    : mFile(file),
      mFunction(function),
      mLine(line),
      mLevel(level),
      mName(text::orElse(name, "")),
      mThresholdMs(thresholdMs),
      mStart(vyn::tick::nanoseconds()) {}

TimerScopeTracer::~TimerScopeTracer() {
    const int64_t elapsed = vyn::tick::nanoseconds() - mStart;
    if (elapsed <= nanosecondsOf(mThresholdMs) || !passes(mLevel)) return;
    detail::Line(kTag, mFile, mFunction, mLine, mLevel).stream()
        << mName << " took " << elapsed / kNanosecondsPerMs << " ms";
}

}  // namespace logging
