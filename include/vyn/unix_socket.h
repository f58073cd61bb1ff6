// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include <vyn/socket_base.h>

namespace vyn {

// A stream or datagram socket between processes of this machine.
//
// An address is the path of a socket file, or, beginning with '@', a name that lives in no folder
// and goes with its socket. Either has at most 107 bytes; an address that cannot be one is refused
// with an error line.
//
// Copying gives a second descriptor of the same connection; move() and the constructor from a
// pointer take the descriptor over. Operations that return bool return false on failure.
class VYN_API UnixSocket : public SocketBase {
  public:
    // What a socket carries: a stream of bytes, or datagrams.
    enum Type { STREAM, DGRAM };

    // Who is at the other end, as the kernel vouches for it.
    struct Credentials {
        pid_t pid;  // the process
        uid_t uid;  // its user
        gid_t gid;  // its group
    };

    // How long connect() waits unless it is told.
    static constexpr int kConnectTimeoutMs = 5000;

    // Without a descriptor.
    UnixSocket() = default;
    // With a new descriptor; invalid when there is none to be had.
    explicit UnixSocket(Type type);
    // Takes over; null makes an empty socket.
    explicit UnixSocket(const UnixSocket* other);
    // Another descriptor for the same; -1 when the process has none left.
    UnixSocket(const UnixSocket& other) = default;
    UnixSocket& operator=(const UnixSocket& other) = default;
    // Take over.
    UnixSocket(UnixSocket&& other) noexcept;
    UnixSocket& operator=(UnixSocket&& other) noexcept;
    ~UnixSocket() = default;

    // Closes this socket and takes over the other's descriptor, which leaves the other without.
    void move(const UnixSocket& other);

    // As Socket::fromDescriptor(), for a stream or datagram socket of this kind.
    [[nodiscard]] static UnixSocket fromDescriptor(int fd);

    // Opens a new descriptor in place of the present one.
    bool create(Type type);
    // What create() was given last.
    [[nodiscard]] Type type() const { return mType; }

    // Creates the socket file. One that a process left behind is replaced; one whose owner lives,
    // and anything else in its place, is not touched and makes binding fail.
    // Closing leaves the file: a copy of the socket may still be in use, also in another process.
    bool bind(const std::string& addr);

    // Connects a stream to a listener, or a datagram socket to the address that it sends to. While
    // the listener's backlog is full a blocking socket waits, at most `timeoutMs` milliseconds or,
    // when that is negative, for ever; then errno is EAGAIN. A non-blocking one does not wait.
    bool connect(const std::string& addr, int timeoutMs = kConnectTimeoutMs);

    // As Socket::accept(). Any thread.
    [[nodiscard]] UnixSocket accept();

    // Datagrams to and from any address. `from` may be null; it becomes empty for a sender that has
    // no address.
    int sendTo(const void* data, int size, const std::string& to);
    int recvFrom(void* buffer, int size, int timeoutMs, std::string* from);

    // The addresses of both ends; empty for an end that was never bound, as clients seldom are,
    // and for a closed socket.
    [[nodiscard]] std::string getRemoteAddr() const;
    [[nodiscard]] std::string getLocalAddr() const;

    // The process that connected, or that listened when this end connected, at that time. None for
    // a socket that is not connected, and for datagrams. An Authenticator can decide by it who may
    // use a socket file that is open to everyone.
    [[nodiscard]] std::optional<Credentials> peerCredentials() const;

  private:
    Type mType = STREAM;
};

}  // namespace vyn
