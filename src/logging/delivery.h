// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

// The way of a line from its statement to the system's log and the printers.
namespace logging::delivery {

// Where a line comes from.
struct Statement {
    int level;
    const char* tag;
    std::string_view file;  // with its folders
    std::string_view function;
    int line;
};

// Makes `line` the finished line of the text, with a newline, and hands it on. May throw
// std::bad_alloc, and what a printer throws.
void deliver(const Statement& statement, std::string_view text, std::string& line);

// Tells that there is no memory for the line.
void lose(const Statement& statement);

}  // namespace logging::delivery
