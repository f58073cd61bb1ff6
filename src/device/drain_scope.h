// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn {

class Device;

// While a worker drains its write queue into a device, that device's socket sends without waiting,
// whatever the descriptor's mode: the loop never waits for a peer. The worker learns here what the
// socket said, also when the device is of a class of the application's that was derived from one of
// the library's. Lives on the stack of one thread.
class DrainScope {
  public:
    explicit DrainScope(const Device* device) : mDevice(device), mOuter(tInnermost) {
        tInnermost = this;
    }
    ~DrainScope() { tInnermost = mOuter; }
    DrainScope(const DrainScope&) = delete;
    DrainScope& operator=(const DrainScope&) = delete;

    // The one in which this device is written to on this thread, or null.
    static DrainScope* of(const Device* device) {
        DrainScope* scope = tInnermost;
        while (scope != nullptr && scope->mDevice != device) scope = scope->mOuter;
        return scope;
    }

    // Of the last attempt of one of the library's sockets: its errno, 0 when it sent something or
    // when there was none, and whether that is a stream.
    int error = 0;
    bool isStream = false;

  private:
    static inline thread_local DrainScope* tInnermost = nullptr;

    const Device* mDevice;
    DrainScope* mOuter;
};

}  // namespace vyn
