// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace echo {

// The clients of one echo server, on one thread. Each connection has one message under way: it
// sends the next when the last came back.
class Load {
  public:
    // Connects to the socket file, or, when `path` is empty, to the port, and lets every connection
    // make one round trip.
    Load(const std::string& path, int port, int connections, size_t messageBytes);
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    // Keeps the first `active` connections busy for that long, and ends when all is answered.
    // Returns the time that each round trip took, in nanoseconds.
    std::vector<int64_t> run(int active, int64_t durationNs);

  private:
    struct Connection {
        int fd;
        size_t missing;  // of the message under way
        int64_t sentAt;
    };

    void send(Connection& connection, int64_t now);
    bool receive(Connection& connection);

    int mEpoll;
    std::vector<Connection> mConnections;
    std::string mMessage;
};

}  // namespace echo
