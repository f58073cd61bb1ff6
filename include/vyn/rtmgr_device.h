// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/device.h>

namespace vyn {

// Reports that a network interface or an IPv4 address changed as Executor::onNetworkChanged(), once
// for each notice of the kernel and without saying what changed. Notices that the kernel had to
// drop count as one. Watches the network namespace of the thread that creates the device.
class VYN_API RtmgrDevice : public Device {
  public:
    // Opens the routing socket of the kernel. Failing is fatal.
    RtmgrDevice();
    ~RtmgrDevice() override;
    RtmgrDevice(const RtmgrDevice&) = delete;
    RtmgrDevice& operator=(const RtmgrDevice&) = delete;

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    // Returns `len` and writes nothing.
    int write(const void* data, int len) override;
    int getFd() override;
    // Does nothing.
    void disconnect() override;

  private:
    void onFailure(int error);
    void joinGroups();

    int mSocket;
};

}  // namespace vyn
