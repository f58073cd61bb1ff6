#pragma once

#include <string>
#include <string_view>

// The form of a line, which every message ends in.
namespace logging::text {

// "char& vyn::Buffer::at(int)" becomes "at".
std::string_view bareFunctionName(std::string_view signature);

// Makes `to` "[pump.cpp:7 (turn)]  ", of a file's path and a bare function name, and then the text
// without its trailing blanks and line ends, and the terminal's colour reset.
void compose(std::string& to, std::string_view file, int line, std::string_view function,
             std::string_view text);

// The priority of a line in the system's log, as that counts them.
int priorityOf(int level);

}  // namespace logging::text
