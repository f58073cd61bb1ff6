// SPDX-License-Identifier: Apache-2.0

#include <vyn/handler.h>
#include <vyn/timer.h>

#include "timer/contest.h"

namespace timer {

namespace {

class Timers {
  public:
    Timers(size_t most, Fired fired) : mFired(std::move(fired)), mTimers(most) {}
    void add(size_t timer, int intervalMs) {
        mTimers[timer].owner = this;
        mTimers[timer].id = mConnector.addTimer(&mTimers[timer], intervalMs, nullptr);
    }
    void reset(size_t timer) { mConnector.resetTimer(mTimers[timer].id); }
    void remove(size_t timer) { mConnector.removeTimer(mTimers[timer].id); }
    void run(const std::function<void()>& first) {
        mStart.first = first;
        mStart.sendMessage(vyn::Message::obtain());
        mConnector.run();
    }
    void stop() { mConnector.stop(); }

  private:
    struct OneTimer : vyn::Timer {
        Timers* owner = nullptr;
        int id = 0;
        bool onTimer(void*, int) override {
            owner->mFired(static_cast<size_t>(this - owner->mTimers.data()));
            return true;
        }
    };

    struct Start : vyn::Handler {
        using Handler::Handler;
        std::function<void()> first;
        void onMessage(vyn::Message) override { first(); }
    };

    Fired mFired;
    std::vector<OneTimer> mTimers;
    vyn::Connector mConnector;
    Start mStart{mConnector};
};

}  // namespace

std::vector<bench::Contest> ours() { return contests<Timers>("ours"); }

}  // namespace timer
