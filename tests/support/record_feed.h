#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace vyn::testing {

// Puts one end of a pair of sockets in the place of a descriptor that reads records of the kernel,
// so that a test decides what is read. Each record block is one datagram.
class RecordFeed {
  public:
    explicit RecordFeed(int fd) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0 ||
            dup2(ends[0], fd) != fd) {
            throw std::runtime_error("no socket pair");
        }
        close(ends[0]);
        mFeed = ends[1];
    }
    ~RecordFeed() { end(); }

    bool send(const std::string& block) {
        return ::send(mFeed, block.data(), block.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(block.size());
    }
    void end() {
        if (mFeed >= 0) close(mFeed);
        mFeed = -1;
    }

  private:
    int mFeed;
};

// The bytes of a record's header.
template <typename Header>
std::string bytesOf(const Header& header) {
    return std::string(reinterpret_cast<const char*>(&header), sizeof header);
}

}  // namespace vyn::testing
