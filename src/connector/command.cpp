// SPDX-License-Identifier: Apache-2.0

#include <vyn/command.h>

namespace vyn {

namespace {

std::ostream& print(std::ostream& os, Command& command) {
    os << std::dec << command.getClassName() << ": {";
    command.dump(os);
    return os << "}";
}

}  // namespace

Command::~Command() = default;

std::ostream& operator<<(std::ostream& os, Command* command) {
    return command == nullptr ? os << "Command: NULL" : print(os, *command);
}

std::ostream& operator<<(std::ostream& os, const Command* command) {
    // Printing leaves a command as it is; its operations are not const for history's sake.
    return os << const_cast<Command*>(command);
}

std::ostream& operator<<(std::ostream& os, Command& command) { return print(os, command); }

}  // namespace vyn
