// SPDX-License-Identifier: Apache-2.0

#pragma once

// What the logging needs of the system; one source file for each kind of system.
namespace logging::platform {

// Writes one line to the system's log. `priority` is an android_LogPriority. Errors are ignored.
void writeLine(int priority, const char* tag, const char* line);

// Ends the process after a fatal line.
[[noreturn]] void abortProcess(const char* line);

}  // namespace logging::platform
