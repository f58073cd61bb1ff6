#include "device/socket_options.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <vyn/socket.h>

#include "device/socket_io.h"

namespace vyn {

bool Socket::setNoDelay(bool on) { return io::setOption(fd(), IPPROTO_TCP, TCP_NODELAY, on); }

bool Socket::setKeepAlive(bool on, int idleSeconds, int intervalSeconds, int count) {
    const auto setFigure = [this](int name, int value) {
        return value == 0 || io::setOption(fd(), IPPROTO_TCP, name, value);
    };
    return setFigure(TCP_KEEPIDLE, idleSeconds) && setFigure(TCP_KEEPINTVL, intervalSeconds) &&
           setFigure(TCP_KEEPCNT, count) && io::setOption(fd(), SOL_SOCKET, SO_KEEPALIVE, on);
}

bool Socket::setReusePort(bool on) { return io::setOption(fd(), SOL_SOCKET, SO_REUSEPORT, on); }

namespace io {

namespace {

struct Setting {
    int level;
    int name;
    int scale;  // the kernel reports buffer sizes doubled
};

constexpr Setting kSettings[] = {
    {SOL_SOCKET, SO_REUSEPORT, 1},   {SOL_SOCKET, SO_KEEPALIVE, 1}, {SOL_SOCKET, SO_SNDBUF, 2},
    {SOL_SOCKET, SO_RCVBUF, 2},      {IPPROTO_TCP, TCP_NODELAY, 1}, {IPPROTO_TCP, TCP_KEEPIDLE, 1},
    {IPPROTO_TCP, TCP_KEEPINTVL, 1}, {IPPROTO_TCP, TCP_KEEPCNT, 1},
};

}  // namespace

void copySettings(int from, int to) {
    for (const Setting& setting : kSettings) {
        const int value = getOption(from, setting.level, setting.name);
        // A buffer size that was set, even to the default, no longer grows with the connection.
        if (value < 0 || value == getOption(to, setting.level, setting.name)) continue;
        setOption(to, setting.level, setting.name, value / setting.scale);
    }
    setNonBlocking(to, (fcntl(from, F_GETFL) & O_NONBLOCK) != 0);
}

}  // namespace io

}  // namespace vyn
