// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace vyn::testing {

// How many descriptors the process has open.
inline int openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all))) - 1;  // the directory's own
}

// Waits, for longer than any test should take, until `fd` is ready for `events`.
inline bool awaitReady(int fd, short events) {
    pollfd entry{fd, events, 0};
    return poll(&entry, 1, 10000) == 1;
}
inline bool awaitReadable(int fd) { return awaitReady(fd, POLLIN); }

// A connected pair of sockets: one end for a device, the other for the test.
inline std::pair<int, int> makeSocketPair(int type = SOCK_STREAM) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
    return {ends[0], ends[1]};
}

// Sees to it that the process may open `count` descriptors, as far as it is allowed to.
inline void allowDescriptors(rlim_t count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(count, limit.rlim_max));
    setrlimit(RLIMIT_NOFILE, &limit);
}

// While it lives, the process cannot open another descriptor.
class ExhaustedDescriptors {
  public:
    ExhaustedDescriptors() {
        getrlimit(RLIMIT_NOFILE, &mLimit);
        const rlimit lowered{1024, mLimit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &lowered);
        for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) mFillers.push_back(fd);
    }
    ~ExhaustedDescriptors() {
        for (int fd : mFillers) close(fd);
        setrlimit(RLIMIT_NOFILE, &mLimit);
    }

  private:
    rlimit mLimit{};
    std::vector<int> mFillers;
};

// Puts other descriptors in the place of standard input and output while it lives.
class ConsoleRedirect {
  public:
    ConsoleRedirect(int input, int output) { replace(input, output); }
    ~ConsoleRedirect() {
        replace(mFormer[0], mFormer[1]);
        for (const int fd : mFormer) close(fd);
    }

  private:
    static void replace(int input, int output) {
        std::fflush(stdout);
        dup2(input, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
    }

    const int mFormer[2] = {fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3),
                            fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)};
};

// A pipe whose ends are closed at the latest when it goes.
class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe2(mEnds, O_CLOEXEC), 0); }
    ~Pipe() {
        closeReadEnd();
        closeWriteEnd();
    }

    int readEnd() const { return mEnds[0]; }
    int writeEnd() const { return mEnds[1]; }
    void closeReadEnd() { closeEnd(0); }
    void closeWriteEnd() { closeEnd(1); }

  private:
    void closeEnd(int end) {
        if (mEnds[end] >= 0) close(std::exchange(mEnds[end], -1));
    }

    int mEnds[2] = {-1, -1};
};

// Puts one end of a pair of sockets in the place of a descriptor that reads records of the kernel,
// so that a test decides what is read. Each record block is one datagram.
class RecordFeed {
  public:
    explicit RecordFeed(int fd) : mEnds(makeSocketPair(SOCK_SEQPACKET | SOCK_NONBLOCK)) {
        dup2(mEnds.first, fd);
        close(mEnds.first);
    }
    ~RecordFeed() { close(mEnds.second); }

    bool send(const std::string& block) {
        return ::send(mEnds.second, block.data(), block.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(block.size());
    }

  private:
    const std::pair<int, int> mEnds;
};

// The bytes of a record's header.
template <typename Header>
std::string bytesOf(const Header& header) {
    return std::string(reinterpret_cast<const char*>(&header), sizeof header);
}

}  // namespace vyn::testing
