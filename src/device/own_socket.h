// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/uio.h>

namespace vyn {

class Device;
class SocketBase;

// The socket of a device that the application created as exactly NetDevice or UnixDevice. Nothing
// of such a device is overridden, so what is written to it may go to its socket directly, and
// several writes to a stream at once.
struct OwnSocket {
    // Neither for null, nor for any other device, nor for one of a class derived from those two.
    static OwnSocket of(Device* device);

    bool exists() const { return isStream || isDatagram; }

    int fd = -1;
    bool isStream = false;
    bool isDatagram = false;
};

// What became of one attempt to send.
struct Sent {
    int count;  // below 1: nothing was sent
    int error;  // then the socket's errno; 0 when it is not known
};

// Sends the parts, in one call and without waiting.
Sent sendNow(int fd, const iovec* parts, int count);

// Of any descriptor: whether it is a socket for datagrams; ends this side's half of a stream;
// whether there are bytes that the peer's system has not confirmed yet, which is known for TCP
// only; and whether there are bytes to read.
bool isDatagramSocket(int fd);
void endSending(int fd);
bool hasBytesUnderWay(int fd);
bool hasUnreadBytes(int fd);

// What the write() of the library's devices does: sends as SocketBase::send(), but without waiting
// while a worker drains its queue.
int writeToSocket(const Device* device, SocketBase& socket, bool isStream, const void* data,
                  int len);

}  // namespace vyn
