// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include <vyn/export.h>

namespace vyn {

// What TCP, UDP and Unix sockets share: one owned descriptor, closed on destruction and never
// passed on to programs that the process starts.
//
// A socket is used on one thread at a time, except that one thread may send while another
// receives, and that several threads may accept. Calls that fail set errno. No call ends early
// because of a signal, and none raises SIGPIPE.
class VYN_API SocketBase {
  public:
    // The descriptor, or -1.
    [[nodiscard]] int fd() const { return mFd; }
    // True with a descriptor.
    [[nodiscard]] bool isValid() const { return mFd >= 0; }
    // Closes the descriptor.
    void reset();
    // Gives the descriptor up: it is the caller's to close. -1 when there is none.
    [[nodiscard]] int release();

    // Makes a bound stream socket accept peers. Its descriptor becomes non-blocking, so that a peer
    // that vanishes before it is accepted cannot block the loop; leave it so. Listening keeps one
    // descriptor of the process in reserve, see accept().
    bool listen();

    // Sends `size` bytes. A blocking stream sends all of them unless it fails midway, a
    // non-blocking one what it takes at once: both return how many that were. A datagram goes whole
    // or not at all. Returns -1 when nothing was sent, with errno EAGAIN when a non-blocking socket
    // took nothing.
    int send(const void* data, int size);
    // Receives at most `size` bytes, waiting for the first of them at most `timeoutMs` milliseconds
    // whether the descriptor blocks or not; a negative time-out waits for ever. Returns how many
    // came, 0 at the end of the stream, or -1 on failure, with errno EAGAIN when the time ran out.
    // Of a datagram, what does not fit is lost; an empty one is 0.
    int recv(void* buffer, int size, int timeoutMs);
    // The same; a blocking descriptor waits for ever, a non-blocking one not at all.
    int recv(void* buffer, int size);
    // Ends this side's half of a stream: the peer reads its end, and may still send.
    bool shutdownSend();

    // Copies share the mode: it belongs to the connection, not to the descriptor.
    bool setNonBlock(bool nonBlock);
    // The kernel's buffers, in bytes; it takes these as hints.
    bool setSendBufferSize(int bytes);
    bool setReceiveBufferSize(int bytes);

    // Why the last failed call of this thread failed, as "[111] Connection refused": the text of
    // errno, so ask before anything else changes that.
    [[nodiscard]] static std::string lastErrorMessage();

  protected:
    SocketBase() = default;
    // A descriptor of its own for the same connection; -1 when the process has none left.
    SocketBase(const SocketBase& other);
    SocketBase& operator=(const SocketBase& other);
    ~SocketBase();

    // Closes the descriptor and takes the other's, which is left with -1.
    void takeDescriptor(const SocketBase& other);
    // Closes the descriptor and owns this one.
    void setDescriptor(int fd);

  private:
    // Mutable because sockets that are accepted are handed to the application as const, and are
    // emptied by the device that takes them over.
    mutable int mFd = -1;
};

}  // namespace vyn
