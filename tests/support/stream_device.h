#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vyn/device.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace vyn::testing {

// A connected pair of stream sockets: one end for a device, the other for the test.
inline std::pair<int, int> makeSocketPair() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no socket pair");
    }
    return {ends[0], ends[1]};
}

// A device over a descriptor, which it owns.
class StreamDevice : public BaseDevice {
  public:
    explicit StreamDevice(int fd) : mFd(fd) {}
    ~StreamDevice() override { closeDescriptor(); }

    int write(const void* data, int len) override {
        return static_cast<int>(
            send(mFd, data, static_cast<size_t>(len), MSG_NOSIGNAL | MSG_DONTWAIT));
    }
    int read(char* buf, int len) override {
        return static_cast<int>(::read(mFd, buf, static_cast<size_t>(len)));
    }
    int getFd() override { return mFd; }
    void disconnect() override {
        closeDescriptor();
        onDisconnected();
    }
    void closeDescriptor() {
        if (mFd >= 0) close(std::exchange(mFd, -1));
    }

  private:
    int mFd;
};

}  // namespace vyn::testing
