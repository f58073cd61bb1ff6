#include <android/log.h>

#include <cstdlib>

#include "logging/log_platform.h"

namespace logging::platform {

namespace {

// The host's log drops verbose and debug lines of its own accord. Its floor is lowered once, so
// that the levels of `logging` alone decide.
bool lowerLogFloor() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    return true;
}

}  // namespace

void writeLine(int priority, const char* tag, const char* line) {
    [[maybe_unused]] static const bool lowered = lowerLogFloor();
    __android_log_write(priority, tag, line);
}

void abortProcess(const char*) { std::abort(); }

}  // namespace logging::platform
