// SPDX-License-Identifier: Apache-2.0

#include "logging/delivery.h"

#include <vyn/logging.h>

#include "logging/line_text.h"
#include "logging/log_platform.h"
#include "logging/log_settings.h"
#include "logging/printers.h"

namespace logging::delivery {

namespace {

void write(const Statement& statement, const char* line) {
    const bool isRaised = statement.level <= settings::printLevel();
    const int priority = text::priorityOf(isRaised ? kLevelError : statement.level);
    platform::writeLine(priority, statement.tag, line);
}

}  // namespace

void deliver(const Statement& statement, std::string_view text, std::string& line) {
    const std::string_view file = text::baseName(statement.file);
    text = text::withoutTrailingBlanks(text);
    text::compose(line, file, statement.line, statement.function, text);
    // The system's log ends lines itself; one more newline would show as an empty line.
    write(statement, line.c_str());
    line += '\n';
    printers::print(line, {statement.level, statement.tag, file, statement.function, statement.line,
                           text, 0, 0});
}

void lose(const Statement& statement) { write(statement, "out of memory, a log line is lost."); }

}  // namespace logging::delivery
