// SPDX-License-Identifier: Apache-2.0

#include <vyn/device.h>
#include <vyn/handler.h>
#include <vyn/logging.h>
#include <vyn/timer.h>
#include <vyn/worker.h>

#include <memory>

#include "idle/turn.h"

namespace idle {

namespace {

struct SilentDevice : vyn::Device {
    explicit SilentDevice(int watched) : fd(watched) {}
    int getFd() override { return fd; }
    void onDataArrival(int) override {}
    int write(const void*, int) override { return -1; }
    int fd;
};

struct ReadyDevice : SilentDevice {
    ReadyDevice(int watched, Turn& counter, vyn::Connector& connector)
        : SilentDevice(watched), turn(counter), loop(connector) {}
    void onDataArrival(int) override {
        if (!turn()) loop.stop();
    }
    Turn& turn;
    vyn::Connector& loop;
};

struct IdleTimer : vyn::Timer {
    bool onTimer(void*, int) override { return true; }
};

class Loop {
  public:
    Loop() { logging::setLogLevel(logging::kLevelWarning); }
    void addConnection(int fd) {
        mDevices.push_back(std::make_unique<SilentDevice>(fd));
        mWorkers.push_back(std::make_unique<vyn::Worker>(mDevices.back().get(), nullptr));
        mConnector.addWorkerLocked(mWorkers.back().get(), &mHandler);
    }
    void addTimer(int intervalMs) { mConnector.addTimer(&mTimer, intervalMs, nullptr); }
    void run(int ready, Turn& turn) {
        ReadyDevice device(ready, turn, mConnector);
        vyn::Worker worker(&device, nullptr);
        mConnector.addWorkerLocked(&worker, &mHandler);
        mConnector.run();
        mConnector.removeWorkerLocked(&worker);
    }

  private:
    IdleTimer mTimer;
    std::vector<std::unique_ptr<SilentDevice>> mDevices;
    std::vector<std::unique_ptr<vyn::Worker>> mWorkers;
    vyn::Connector mConnector;
    vyn::Handler mHandler{mConnector};
};

}  // namespace

std::vector<bench::Contest> ours() { return turnContests<Loop>("ours"); }

}  // namespace idle
