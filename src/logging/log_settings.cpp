// SPDX-License-Identifier: Apache-2.0

#include "logging/log_settings.h"

#include <vyn/logging.h>

#include <algorithm>

#include "logging/log_platform.h"

namespace logging {

namespace detail {
std::atomic<int> currentLevel{kLevelVerbose};
}

namespace {

std::atomic<int> gPrintLevel{kLevelError};
std::atomic<Aborter> gAborter{nullptr};

}  // namespace

const char* getLogLevelStr(int level) {
    static constexpr const char* kNames[] = {"E", "E", "W", "I", "D", "V"};
    return kNames[level];
}

void setLogLevel(int level) { detail::currentLevel.store(level, std::memory_order_relaxed); }

int getLogLevel() {
    int stored = detail::currentLevel.load(std::memory_order_relaxed);
    const int clamped = std::clamp(stored, kLevelError, kLevelVerbose);
    // Another thread may set a level meanwhile; its value is not overwritten by the clamped one.
    if (clamped != stored) detail::currentLevel.compare_exchange_strong(stored, clamped);
    return clamped;
}

void setLogPrintLevel(int level) { gPrintLevel.store(level, std::memory_order_relaxed); }

void setLoggingStream(std::ostream&) {}

void setAborter(Aborter aborter) { gAborter.store(aborter, std::memory_order_release); }

namespace settings {

int printLevel() { return gPrintLevel.load(std::memory_order_relaxed); }

void abortWith(const std::string& line) {
    if (Aborter aborter = gAborter.load(std::memory_order_acquire)) {
        aborter(line.c_str());
    } else {
        platform::abortProcess(line.c_str());
    }
}

}  // namespace settings

}  // namespace logging
