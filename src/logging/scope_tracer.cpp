#include <vyn/logging.h>

#include "common/tick.h"

namespace logging {

namespace {

int64_t elapsedMs(int64_t startNanoseconds) {
    return (vyn::tick::nanoseconds() - startNanoseconds) / 1000000;
}

}  // namespace

ScopeTracer::ScopeTracer(const char* file, const char* function, int line, int level,
                         const char* name)
    : mFile(file),
      mFunction(function),
      mLine(line),
      mLevel(level),
      mName(name),
      mStart(vyn::tick::nanoseconds()) {
    LogMessage(kTag, mFile, mFunction, mLine, mLevel, false, true) << "enter " << mName;
}

ScopeTracer::~ScopeTracer() {
    LogMessage(kTag, mFile, mFunction, mLine, mLevel, false, true)
        << "leave " << mName << ", " << elapsedMs(mStart) << " ms";
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
    const int64_t elapsed = elapsedMs(mStart);
    if (elapsed <= mThresholdMs) return;
    LogMessage(kTag, mFile, mFunction, mLine, mLevel, false, true)
        << mName << " took " << elapsed << " ms";
}

}  // namespace logging
