// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/logging.h>

// The printers that an application has installed.
namespace logging::printers {

// Hands a finished line to those there are. Time and thread of the record are filled in here.
void print(const std::string& line, LogRecord record);

}  // namespace logging::printers
