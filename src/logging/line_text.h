// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

// The form of a line, which every message ends in.
namespace logging::text {

// The text, or the other one when it is null.
inline const char* orElse(const char* text, const char* other) {
    return text == nullptr ? other : text;
}

// "char& vyn::Buffer::at(int)" becomes "at".
std::string_view bareFunctionName(std::string_view signature);

// What follows the last "/" or "\\".
std::string_view baseName(std::string_view path);

// Without the carriage returns, line feeds and blanks at its end.
std::string_view withoutTrailingBlanks(std::string_view text);

// Copies a text without the terminal's colours and returns the end of the copy, which takes no more
// room than the text.
char* copyWithoutColours(std::string_view text, char* to);

// Makes `to` "[pump.cpp:7 (turn)]  ", of a file's base name and a bare function name, and then the
// text and the terminal's colour reset.
void compose(std::string& to, std::string_view file, int line, std::string_view function,
             std::string_view text);

// The priority of a line in the system's log, as that counts them.
int priorityOf(int level);

}  // namespace logging::text
