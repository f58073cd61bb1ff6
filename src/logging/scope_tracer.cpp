#include <vyn/logging.h>

#include "common/tick.h"

namespace logging {

namespace {

constexpr int64_t kNanosecondsPerMs = 1000000;

}  // namespace

ScopeTracer::ScopeTracer(const char* file, const char* function, int line, int level,
                         const char* name)
    : mFile(file),
      mFunction(function),
      mLine(line),
      mLevel(level),
      mName(name),
      mStart(vyn::tick::nanoseconds()) {
    if (!passes(mLevel)) return;
    LogMessage(kTag, mFile, mFunction, mLine, mLevel, false, true) << "enter " << mName;
}

ScopeTracer::~ScopeTracer() {
    if (!passes(mLevel)) return;
    const int64_t elapsed = vyn::tick::nanoseconds() - mStart;
    LogMessage(kTag, mFile, mFunction, mLine, mLevel, false, true)
        << "leave " << mName << ", " << elapsed / kNanosecondsPerMs << " ms";
}

TimerScopeTracer::TimerScopeTracer(const char* file, const char* function, int line, int level,
                                   const char* name, long thresholdMs)
    : mFile(file),
      mFunction(function),
      mLine(line),
      mLevel(level),
      mName(name),
      mThresholdMs(thresholdMs),
      mStart(vyn::tick::nanoseconds()) {}

TimerScopeTracer::~TimerScopeTracer() {
    const int64_t elapsed = vyn::tick::nanoseconds() - mStart;
    if (elapsed <= mThresholdMs * kNanosecondsPerMs || !passes(mLevel)) return;
    LogMessage(kTag, mFile, mFunction, mLine, mLevel, false, true)
        << mName << " took " << elapsed / kNanosecondsPerMs << " ms";
}

}  // namespace logging
