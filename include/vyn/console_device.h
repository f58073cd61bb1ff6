// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/device.h>

namespace vyn {

// Standard input and output as the connection of one worker, for operators' commands. Both belong
// to the process: the device never closes them nor changes their mode.
//
// The loop can watch a terminal, a pipe or a socket as standard input, not a file or /dev/null.
class VYN_API ConsoleDevice : public BaseDevice {
  public:
    const char* getClassName() override;
    // Prints the bytes. Only what is harmless on a terminal goes out as it is: the characters from
    // '$' to '~', blank, tab, carriage return, line feed and the double quote. Any other byte
    // becomes four characters such as `\x1b`. Always returns `len`.
    //
    // Waits for a slow reader as a blocking standard output does, for at most a second when it is
    // non-blocking; what cannot be printed is logged and lost. A reader that is gone does not end
    // the process with SIGPIPE.
    int write(const void* data, int len) override;
    // Standard input.
    int getFd() override;
    // Does nothing.
    void disconnect() override;
    int read(char* buf, int len) override;
};

}  // namespace vyn
