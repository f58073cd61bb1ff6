#pragma once

#include <string>
#include <string_view>

// The form of a line, which every message ends in.
namespace logging::text {

// Stands in the place of a line for which there is no memory.
constexpr char kLostLine[] = "out of memory, a log line is lost.";

// The text, or the other one when it is null.
inline const char* orElse(const char* text, const char* other) {
    return text == nullptr ? other : text;
}

// "char& vyn::Buffer::at(int)" becomes "at".
std::string_view bareFunctionName(std::string_view signature);

// Makes `to` "[pump.cpp:7 (turn)]  ", of a file's path and a bare function name, and then the text
// without its trailing blanks and line ends, and the terminal's colour reset.
void compose(std::string& to, std::string_view file, int line, std::string_view function,
             std::string_view text);

// The priority of a line in the system's log, as that counts them.
int priorityOf(int level);

}  // namespace logging::text
