// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

// The process-wide settings as the writer of a line reads them.
namespace logging::settings {

int printLevel();
// Ends the process, or calls the installed aborter and returns when that does.
void abortWith(const std::string& line);

}  // namespace logging::settings
