// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

#include "echo/server.h"

namespace echo {

// An echo server in a process of its own, with one thread, on the measured core. It ends with this
// object, or with this process.
class ServerProcess {
  public:
    // `before` is called in the new process first.
    ServerProcess(
        void (*serve)(const Place& place), bool isUnix,
        const std::function<void()>& before = [] {});
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    pid_t id() const { return mProcess; }
    // The one of these that counts is where to connect to.
    const std::string& path() const { return mPath; }
    int port() const { return mPort; }
    // Nanoseconds that it has spent on its core. Exact while it has nothing to do.
    int64_t cpuTime() const;

  private:
    pid_t mProcess;
    std::string mPath;
    int mPort = 0;
    clockid_t mClock;
};

}  // namespace echo
