// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include <vyn/socket_address.h>
#include <vyn/socket_base.h>

namespace vyn {

// A TCP or UDP socket over IPv4 or IPv6. Addresses are numeric; the family follows the address that
// is bound, connected or sent to, for as long as the socket has none. Another family takes another
// socket under the same descriptor's number. It has the mode of the one before and of the options
// set through fd(): SO_BINDTODEVICE, SO_MARK, SO_PRIORITY, SO_BROADCAST, SO_DONTROUTE,
// SO_REUSEADDR, SO_REUSEPORT, SO_KEEPALIVE, SO_LINGER, SO_OOBINLINE, SO_RCVLOWAT, the time-outs and
// the buffer sizes, and TCP_NODELAY, TCP_KEEPIDLE, TCP_KEEPINTVL, TCP_KEEPCNT, TCP_USER_TIMEOUT.
// Where one of these is refused, for want of a right, the call fails. Set others behind it.
//
// TCP has no-delay on, see setNoDelay().
//
//     vyn::Socket client(vyn::Socket::TCP);
//     if (!client.connect("192.0.2.7", 7000)) VYN_LOG_INFO << client.lastErrorMessage();
//
// Copying gives a second descriptor of the same connection; move() and the constructor from a
// pointer take the descriptor over. Operations that return bool return false on failure.
class VYN_API Socket : public SocketBase {
  public:
    // What a socket carries: a stream of bytes, or datagrams.
    enum Type { TCP, UDP };

    // How long connect() waits unless it is told.
    static constexpr int kConnectTimeoutMs = 5000;

    // Without a descriptor.
    Socket() = default;
    // With a new descriptor; invalid when there is none to be had.
    explicit Socket(Type type);
    // Takes over; null makes an empty socket.
    explicit Socket(const Socket* other);
    // Another descriptor for the same; -1 when the process has none left.
    Socket(const Socket& other) = default;
    Socket& operator=(const Socket& other) = default;
    // Take over.
    Socket(Socket&& other) noexcept;
    Socket& operator=(Socket&& other) noexcept;
    ~Socket() = default;

    // Closes this socket and takes over the other's descriptor, which leaves the other without.
    void move(const Socket& other);

    // Takes over a descriptor from elsewhere, such as a parent process or a device's init system
    // leaves open: a TCP or UDP socket over IPv4 or IPv6, in whichever state. It becomes
    // close-on-exec, and TCP gets no-delay as ever; the rest stays. For anything else the socket is
    // invalid, with errno, and the descriptor stays the caller's.
    [[nodiscard]] static Socket fromDescriptor(int fd);

    // Opens a new descriptor in place of the present one.
    bool create(Type type);
    // What create() was given last.
    [[nodiscard]] Type type() const { return mType; }

    // The address to bind to; empty for any IPv4 address. False for a text that is no address, and
    // bind() then fails too.
    bool setHostIP(const std::string& ip);
    // Port 0 takes any free port, see getHostPort(). A TCP port may be bound again as soon as
    // nobody listens on it.
    bool bind(int port);

    // Connects within `timeoutMs` milliseconds; a negative time-out leaves the limit to the kernel.
    // A UDP socket then sends to and receives from this address only. When the time runs out errno
    // is ETIMEDOUT and the attempt is abandoned.
    bool connect(const std::string& ip, int port, int timeoutMs = kConnectTimeoutMs);
    // Connects without waiting: the descriptor becomes non-blocking, and writable once the attempt
    // has ended. True when the attempt is under way; connect() to the same address waits for it.
    bool startConnect(const std::string& ip, int port);

    // The peer that has waited longest, as a blocking socket; an invalid socket when there is none
    // or accepting fails. When the process is out of descriptors the peer is hung up on, with the
    // help of the reserve, and not left waiting: a loop would spin on it. Any thread.
    [[nodiscard]] Socket accept();

    // Datagrams to and from any address, on a UDP socket; otherwise as send() and recv(). `from`
    // may be null; for a stream it becomes none.
    int sendTo(const void* data, int size, const SocketAddress& to);
    int recvFrom(void* buffer, int size, int timeoutMs, SocketAddress* from);

    // The peer's address, known also when the peer is gone or the socket is closed; empty and 0
    // when there never was one.
    [[nodiscard]] std::string getRemoteIP() const { return mRemote.ip(); }
    [[nodiscard]] int getRemotePort() const { return mRemote.port(); }
    // This side's address; until it has one, the address to bind to, and 0.
    [[nodiscard]] std::string getHostIP() const;
    [[nodiscard]] int getHostPort() const;

    // Sends small writes at once, which is on from the start, or gathers them: then two small
    // writes in a row can wait some 40 ms for the peer's acknowledgement. Accepted connections
    // begin with the listener's choice.
    bool setNoDelay(bool on);
    // Has the kernel probe a silent peer: first after `idleSeconds`, then every `intervalSeconds`,
    // and drop it after `count` unanswered probes. 0 leaves the system's figures.
    bool setKeepAlive(bool on, int idleSeconds = 0, int intervalSeconds = 0, int count = 0);
    // Lets several sockets that all ask for it bind one port; connections spread over them.
    bool setReusePort(bool on);
    // Before binding. UDP sockets that all ask for it share a port, as listeners of one multicast
    // group do. TCP has it on.
    bool setReuseAddress(bool on);
    // Before binding to "::": whether only IPv6 peers are served, or IPv4 peers too, which is how
    // it begins on most machines. Those are shown with their IPv4 addresses. Makes an IPv6 socket
    // of one that has no address yet.
    bool setV6Only(bool on);

    // Datagrams to many. Lets it send to a broadcast address.
    bool setBroadcast(bool on);
    // Receives what is sent to a multicast group ("239.1.2.3", "ff02::1:2") on the interface, or on
    // the one that the kernel chooses where the name is empty. Several groups may be joined.
    // Closing leaves them.
    bool joinGroup(const std::string& group, const std::string& interface = "");
    bool leaveGroup(const std::string& group, const std::string& interface = "");
    // What is sent to groups: on which interface; over how many routers, 1 stays on the link; and
    // whether sockets of this machine get it too, which they do unless they are told not to.
    bool setGroupInterface(const std::string& interface);
    bool setGroupHops(int hops);
    bool setGroupLoop(bool on);

  private:
    bool openFor(int family);
    [[nodiscard]] bool isV6() const;
    bool changeGroup(int name, const std::string& group, const std::string& interface);
    [[nodiscard]] SocketAddress localAddress() const;

    Type mType = TCP;
    bool mHostIsValid = true;
    SocketAddress mHost;
    SocketAddress mRemote;
};

}  // namespace vyn
