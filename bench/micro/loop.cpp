// SPDX-License-Identifier: Apache-2.0

#include <sys/eventfd.h>
#include <unistd.h>
#include <vyn/connector.h>
#include <vyn/device.h>
#include <vyn/timer.h>
#include <vyn/worker.h>

#include <memory>
#include <vector>

#include "micro/micro.h"
#include "support/bench.h"
#include "support/machine.h"

namespace bench {

namespace {

constexpr int kTimers = 10000;
constexpr int kWorkers = 1000;
constexpr long kIntervalMs = 60000;

// Posts itself anew for as long as the benchmark goes on.
class Chain : public vyn::Message::Callback {
  public:
    Chain(vyn::Connector& loop, benchmark::State& state) : mLoop(loop), mState(state) {}
    void post() {
        mLoop.sendMessageDelayed(nullptr, vyn::Message::obtain(this, 0, 0, 0, nullptr), 0);
    }
    void onMessage(vyn::Message) override { mState.KeepRunning() ? post() : mLoop.stop(); }

  private:
    vyn::Connector& mLoop;
    benchmark::State& mState;
};

void deliverMessage(benchmark::State& state) {
    vyn::Connector loop;
    Chain chain(loop, state);
    chain.post();
    loop.run();
}

class IdleTimer : public vyn::Timer {
    bool onTimer(void*, int) override { return true; }
};

// A connector with many timers, none of which comes due.
struct ManyTimers {
    ManyTimers() {
        for (int i = 0; i < kTimers; ++i) last = loop.addTimer(&timer, kIntervalMs + i, nullptr);
    }
    IdleTimer timer;
    vyn::Connector loop;
    int last = 0;
};

void addAndRemoveTimer(benchmark::State& state) {
    ManyTimers many;
    for (auto _ : state)
        many.loop.removeTimer(many.loop.addTimer(&many.timer, kIntervalMs, nullptr));
}

void resetTimer(benchmark::State& state) {
    ManyTimers many;
    for (auto _ : state) many.loop.resetTimer(many.last);
}

class EventDevice : public vyn::Device {
  public:
    EventDevice() { require(mFd >= 0, "eventfd"); }
    ~EventDevice() override { close(mFd); }
    void onDataArrival(int) override {}
    int write(const void*, int len) override { return len; }
    int getFd() override { return mFd; }

  private:
    const int mFd = eventfd(0, EFD_CLOEXEC);
};

struct EventWorker {
    EventDevice device;
    vyn::Worker worker{&device, nullptr};
};

void registerAndRemoveWorker(benchmark::State& state) {
    allowDescriptors(kWorkers + 100);
    std::vector<std::unique_ptr<EventWorker>> others;
    EventWorker one;
    vyn::Connector loop;
    for (int i = 0; i < kWorkers; ++i) {
        others.push_back(std::make_unique<EventWorker>());
        loop.addWorkerLocked(&others.back()->worker, nullptr);
    }
    for (auto _ : state) {
        loop.addWorkerLocked(&one.worker, nullptr);
        loop.removeWorkerLocked(&one.worker);
    }
    for (const auto& other : others) loop.removeWorkerLocked(&other->worker);
}

}  // namespace

std::vector<Micro> loopMicros() {
    return {{"message-post-deliver", deliverMessage},
            {"timer-add-remove-among-10000", addAndRemoveTimer},
            {"timer-reset-among-10000", resetTimer},
            {"worker-add-remove-among-1000", registerAndRemoveWorker}};
}

}  // namespace bench
