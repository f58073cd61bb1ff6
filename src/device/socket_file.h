#pragma once

namespace vyn {

class UnixAddress;

// While it lives, no other process that holds one replaces a socket file in the same folder. An
// abstract name has no file, and no lock.
class SocketFileLock {
  public:
    explicit SocketFileLock(const UnixAddress& address);
    ~SocketFileLock();
    SocketFileLock(const SocketFileLock&) = delete;
    SocketFileLock& operator=(const SocketFileLock&) = delete;

    bool isHeld() const { return mHeld; }

  private:
    int mFolder = -1;
    bool mHeld = false;
};

// Removes the socket file of this address if no process has it bound. False when it is in use, is
// not a socket or cannot be removed.
bool removeAbandonedSocketFile(const UnixAddress& address);

}  // namespace vyn
