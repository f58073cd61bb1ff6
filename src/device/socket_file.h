// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn {

class UnixAddress;

// While it lives, no other process that holds one replaces a socket file in the same folder. Goes
// without, for who may read the folder can hold its lock for ever: after a second, with a warning;
// and at once where the folder cannot be opened. An abstract name has no file, and no lock.
class SocketFileLock {
  public:
    explicit SocketFileLock(const UnixAddress& address);
    ~SocketFileLock();
    SocketFileLock(const SocketFileLock&) = delete;
    SocketFileLock& operator=(const SocketFileLock&) = delete;

  private:
    int mFolder = -1;
};

// Removes the socket file of this address if no process has it bound. False, with errno, when that
// fails: EADDRINUSE when it is in use or not a socket.
bool removeAbandonedSocketFile(const UnixAddress& address);

}  // namespace vyn
