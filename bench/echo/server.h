// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

// The servers: each sends back what it gets, on the thread that calls it, until the process is
// killed.
namespace echo {

// Where to listen: on the socket file `path`, or, when that is empty, on any free TCP port of
// 127.0.0.1.
struct Place {
    std::string path;
    int announcement;  // a descriptor to write the port to; see announce()

    bool isUnix() const { return !path.empty(); }
};

// What a server calls once it listens; `port` counts for TCP only.
void announce(const Place& place, int port);

// A non-blocking descriptor that listens there, announced, for those whose library has nothing of
// the kind.
int listenAt(const Place& place);

// More than any message has.
constexpr int kBufferBytes = 64 * 1024;

void serveOursDirect(const Place& place);
void serveOursAsync(const Place& place);
void serveLibuv(const Place& place);
void serveLibevent(const Place& place);
void serveAsio(const Place& place);
void serveEpoll(const Place& place);

}  // namespace echo
