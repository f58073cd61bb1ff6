// SPDX-License-Identifier: Apache-2.0

#include <uv.h>

#include "timer/contest.h"

namespace timer {

namespace {

class Timers {
  public:
    Timers(size_t most, Fired fired) : mFired(std::move(fired)), mTimers(most) {
        uv_loop_init(&mLoop);
        mLoop.data = this;
    }
    void add(size_t timer, int intervalMs) {
        const auto interval = static_cast<uint64_t>(intervalMs);
        uv_timer_init(&mLoop, &mTimers[timer]);
        uv_timer_start(&mTimers[timer], onTimer, interval, interval);
    }
    void reset(size_t timer) { uv_timer_again(&mTimers[timer]); }
    void remove(size_t timer) { uv_timer_stop(&mTimers[timer]); }
    void run(const std::function<void()>& first) {
        mFirst = first;
        uv_timer_t begin;
        uv_timer_init(&mLoop, &begin);
        const auto callFirst = [](uv_timer_t* timer) { ownerOf(timer)->mFirst(); };
        uv_timer_start(&begin, callFirst, 0, 0);
        uv_run(&mLoop, UV_RUN_DEFAULT);
    }
    void stop() { uv_stop(&mLoop); }

  private:
    static Timers* ownerOf(uv_timer_t* timer) { return static_cast<Timers*>(timer->loop->data); }
    static void onTimer(uv_timer_t* timer) {
        Timers* self = ownerOf(timer);
        self->mFired(static_cast<size_t>(timer - self->mTimers.data()));
    }

    Fired mFired;
    std::function<void()> mFirst;
    std::vector<uv_timer_t> mTimers;
    uv_loop_t mLoop;
};

}  // namespace

std::vector<bench::Contest> libuv() { return contests<Timers>("libuv"); }

}  // namespace timer
