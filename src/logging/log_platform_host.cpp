#include <android/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "common/pipe_signal_guard.h"
#include "logging/log_platform.h"

namespace logging::platform {

namespace {

// The host's log drops verbose and debug lines of its own accord. Its floor is lowered once, so
// that the levels of `logging` alone decide.
bool lowerLogFloor() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    return true;
}

// Whether a write to standard error can raise SIGPIPE. Asked for each line, since the program may
// have opened another file in its place; the guard would cost four times as much.
bool mayLoseItsReader() {
    struct stat status {};
    return fstat(STDERR_FILENO, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

}  // namespace

void writeLine(int priority, const char* tag, const char* line) {
    [[maybe_unused]] static const bool lowered = lowerLogFloor();
    std::optional<vyn::PipeSignalGuard> guard;
    if (mayLoseItsReader()) guard.emplace();
    __android_log_write(priority, tag, line);
}

void abortProcess(const char*) { std::abort(); }

}  // namespace logging::platform
