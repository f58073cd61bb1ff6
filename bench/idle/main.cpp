// SPDX-License-Identifier: Apache-2.0

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "idle/memory.h"
#include "idle/turn.h"

namespace idle {

int openSilent() {
    // One end of a connection whose other end says nothing; each descriptor is watched for itself.
    static int ends[2] = {-1, -1};
    if (ends[0] < 0) {
        bench::require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) == 0,
                       "socketpair");
    }
    const int fd = dup(ends[0]);
    bench::require(fd >= 0, "dup");
    return fd;
}

int openCounter(unsigned count) {
    const int fd = eventfd(count, EFD_NONBLOCK);
    bench::require(fd >= 0, "eventfd");
    return fd;
}

namespace {

bench::Contest memory(const char* name, void (*serve)(const echo::Place& place)) {
    return {"memory-5000", name, [serve] { measureMemory(serve, 5000); }};
}

}  // namespace

}  // namespace idle

int main(int argc, char** argv) {
    std::vector<bench::Contest> all{
        idle::memory("ours", echo::serveOursDirect), idle::memory("libuv", echo::serveLibuv),
        idle::memory("libevent", echo::serveLibevent), idle::memory("asio", echo::serveAsio),
        idle::memory("epoll", echo::serveEpoll)};
    for (auto contestant : {idle::ours, idle::libuv, idle::libevent, idle::asio, idle::epoll}) {
        for (bench::Contest& contest : contestant()) all.push_back(std::move(contest));
    }
    return bench::run(argc, argv, all);
}
