// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/device.h>
#include <vyn/worker.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/descriptors.h"

namespace vyn::testing {

// A device without a descriptor that keeps what is written to it.
class FakeDevice : public Device {
  public:
    std::string written;
    // The most bytes that one write takes; below 1 every write fails with this value.
    int accepts = 1 << 30;
    int writes = 0;
    int readies = 0;

    void onDataArrival(int) override {}
    int write(const void* data, int len) override {
        ++writes;
        const int taken = std::min(len, accepts);
        if (taken > 0) written.append(static_cast<const char*>(data), static_cast<size_t>(taken));
        return taken;
    }
    void onReady() override { ++readies; }
    int getFd() override { return -1; }
};

// A device over a stream socket, which it owns.
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

// A worker that keeps the bytes of its device, chunk by chunk, and answers with nothing.
class ReceivedWorker : public Worker {
  public:
    explicit ReceivedWorker(Device* device) : Worker(device, nullptr) {}

    bool handledBeforeParser(const void* data, int len) override {
        chunks.emplace_back(static_cast<const char*>(data), static_cast<size_t>(len));
        received();
        return true;
    }

    std::vector<std::string> chunks;
    std::function<void()> received = [] {};
};

}  // namespace vyn::testing
