// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <ostream>

#include <vyn/export.h>

namespace vyn {

// One message of the application's protocol. The library only carries and prints it; who deletes a
// command is settled between the application's parser and executor.
class VYN_API Command {
  public:
    virtual ~Command();

    // The name of the class, as it is printed.
    virtual const char* getClassName() = 0;
    // Prints the fields.
    virtual void dump(std::ostream& os) = 0;
};

// "Ping: {...}", with the stream left in decimal; "Command: NULL" for a null pointer.
VYN_API std::ostream& operator<<(std::ostream& os, Command* command);
VYN_API std::ostream& operator<<(std::ostream& os, const Command* command);
VYN_API std::ostream& operator<<(std::ostream& os, Command& command);

}  // namespace vyn
