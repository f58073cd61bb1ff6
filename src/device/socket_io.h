// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

// The system calls on sockets, made the way all of the library's sockets make them: interrupted
// calls go on, no SIGPIPE, close-on-exec. Failures are -1 or false, with errno set.
namespace vyn::io {

// Repeats a system call for as long as signals interrupt it.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

// A point in time to wait until; a negative time-out is never reached.
class Deadline {
  public:
    explicit Deadline(int timeoutMs);
    // As poll() takes it: 0 when it is past, -1 for ever.
    [[nodiscard]] int remainingMs() const;

  private:
    int64_t mEndNs;
};

// Another descriptor of the same open socket.
int duplicate(int fd);
// Leaves errno as it was; -1 is ignored.
void closeDescriptor(int fd);
bool setNonBlocking(int fd, bool on);
bool setOption(int fd, int level, int name, int value);
// The option's value, or -1.
int getOption(int fd, int level, int name);

// How long a descriptor rests that was reported ready and is not, so that it can not make the loop
// spin.
constexpr int kNotReadyRestMs = 10;

// Whether the last call failed only because there was nothing to be had or taken at once.
inline bool wouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK; }

// Whether an open socket from elsewhere is of this kind; false with errno when it is not. Then it
// is made close-on-exec.
bool adopt(int fd, bool isOfFamily(int), int* type);

// Waits until `fd` is ready for `events` or in error. False when the time ran out.
bool awaitReady(int fd, short events, const Deadline& deadline);
// Waits a few milliseconds. False when the time ran out.
bool waitALittle(const Deadline& deadline);

// Repeats a call that would block, each time `fd` is ready for `events`. When the time runs out the
// result is -1 with errno EAGAIN. What is ready for poll() need not be for the call, as a socket
// whose error queue holds something, or whose bytes another process takes first: such a one must
// not make this spin.
template <typename Call>
auto awaitAndCall(int fd, short events, const Deadline& deadline, Call call) -> decltype(call()) {
    while (awaitReady(fd, events, deadline)) {
        const auto result = call();
        if (result >= 0 || !wouldBlock()) return result;
        if (!waitALittle(deadline)) break;
    }
    errno = EAGAIN;
    return -1;
}

// See SocketBase for what these return. Addresses may be null; `fromLength` goes in as the room
// there is for the address.
int send(int fd, const void* data, int size, const sockaddr* to, socklen_t toLength);
int receive(int fd, void* buffer, int size, int flags, sockaddr* from, socklen_t* fromLength);
int receiveWithin(int fd, void* buffer, int size, int timeoutMs, sockaddr* from,
                  socklen_t* fromLength);

// Connects; abandons the attempt with ETIMEDOUT when the time runs out.
bool connectWithin(int fd, const sockaddr* to, socklen_t toLength, int timeoutMs);

}  // namespace vyn::io
