#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace vyn::testing {

// Puts other descriptors in the place of standard input and output while it lives.
class ConsoleRedirect {
  public:
    ConsoleRedirect(int input, int output) {
        std::fflush(stdout);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO}) {
            mFormer[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 3);
            dup2(fd == STDIN_FILENO ? input : output, fd);
        }
    }
    ~ConsoleRedirect() {
        std::fflush(stdout);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO}) {
            dup2(mFormer[fd], fd);
            close(mFormer[fd]);
        }
    }

  private:
    int mFormer[2];
};

// A pipe whose ends are closed at the latest when it goes.
class Pipe {
  public:
    Pipe() {
        if (pipe2(mEnds, O_CLOEXEC) != 0) mEnds[0] = mEnds[1] = -1;
    }
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
        if (mEnds[end] >= 0) close(mEnds[end]);
        mEnds[end] = -1;
    }

    int mEnds[2];
};

}  // namespace vyn::testing
