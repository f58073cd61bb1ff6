#pragma once

#include <vyn/device.h>

#include <algorithm>
#include <string>
#include <vector>

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

}  // namespace vyn::testing
