// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <android/set_abort_message.h>

#include <cstdlib>

#include "logging/log_platform.h"

namespace logging::platform {

void writeLine(int priority, const char* tag, const char* line) {
    __android_log_write(priority, tag, line);
}

void abortProcess(const char* line) {
    android_set_abort_message(line);
    std::abort();
}

}  // namespace logging::platform
