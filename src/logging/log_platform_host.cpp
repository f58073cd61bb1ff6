// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "common/pipe_signal_guard.h"
#include "logging/line_text.h"
#include "logging/log_platform.h"

namespace logging::platform {

namespace {

// The host's log drops verbose and debug lines of its own accord. Its floor is lowered once, so
// that the levels of `logging` alone decide.
bool lowerLogFloor() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    return true;
}

// What kind of file standard error is; a pipe, with which care is taken, when that is not known.
// Asked for each line, since the program may have opened another file in its place.
mode_t kindOfErrors() {
    struct stat status {};
    return fstat(STDERR_FILENO, &status) == 0 ? status.st_mode : S_IFIFO;
}

// Only a terminal shows colours.
void writePlain(int priority, const char* tag, const char* line) {
    char usual[2048];
    const std::string_view text = line;
    std::string longer(text.size() < sizeof usual ? 0 : text.size() + 1, '\0');
    char* const plain = longer.empty() ? usual : longer.data();
    *text::copyWithoutColours(text, plain) = '\0';
    __android_log_write(priority, tag, plain);
}

}  // namespace

void writeLine(int priority, const char* tag, const char* line) {
    [[maybe_unused]] static const bool lowered = lowerLogFloor();
    const mode_t kind = kindOfErrors();
    std::optional<vyn::PipeSignalGuard> guard;
    if (S_ISFIFO(kind) || S_ISSOCK(kind)) guard.emplace();
    if (S_ISCHR(kind) && isatty(STDERR_FILENO) == 1) {
        __android_log_write(priority, tag, line);
    } else {
        writePlain(priority, tag, line);
    }
}

void abortProcess(const char*) { std::abort(); }

}  // namespace logging::platform
