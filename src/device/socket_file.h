#pragma once

namespace vyn {

class UnixAddress;

// Removes the socket file of this address if no process has it bound. False when it is in use, is
// not a socket or cannot be removed.
bool removeAbandonedSocketFile(const UnixAddress& address);

}  // namespace vyn
