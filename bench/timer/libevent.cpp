// SPDX-License-Identifier: Apache-2.0

#include <event2/event.h>
#include <event2/event_struct.h>

#include "timer/contest.h"

namespace timer {

namespace {

class Timers {
  public:
    Timers(size_t most, Fired fired)
        : mFired(std::move(fired)), mTimers(most), mIntervals(most), mBase(event_base_new()) {}
    ~Timers() {
        for (OneTimer& timer : mTimers) {
            if (timer.owner != nullptr) event_del(&timer.event);
        }
        event_base_free(mBase);
    }
    void add(size_t timer, int intervalMs) {
        OneTimer& added = mTimers[timer];
        added.owner = this;
        mIntervals[timer] = {intervalMs / 1000, intervalMs % 1000 * 1000};
        event_assign(&added.event, mBase, -1, EV_PERSIST, onTimer, &added);
        event_add(&added.event, &mIntervals[timer]);
    }
    void reset(size_t timer) { event_add(&mTimers[timer].event, &mIntervals[timer]); }
    void remove(size_t timer) { event_del(&mTimers[timer].event); }
    void run(const std::function<void()>& first) {
        mFirst = first;
        const timeval soon{0, 0};
        const auto callFirst = [](evutil_socket_t, short, void* self) {
            static_cast<Timers*>(self)->mFirst();
        };
        event_base_once(mBase, -1, EV_TIMEOUT, callFirst, this, &soon);
        event_base_dispatch(mBase);
    }
    void stop() { event_base_loopbreak(mBase); }

  private:
    struct OneTimer {
        Timers* owner = nullptr;
        struct event event;
    };

    static void onTimer(evutil_socket_t, short, void* argument) {
        auto* timer = static_cast<OneTimer*>(argument);
        Timers* self = timer->owner;
        self->mFired(static_cast<size_t>(timer - self->mTimers.data()));
    }

    Fired mFired;
    std::function<void()> mFirst;
    std::vector<OneTimer> mTimers;
    std::vector<timeval> mIntervals;
    event_base* mBase;
};

}  // namespace

std::vector<bench::Contest> libevent() { return contests<Timers>("libevent"); }

}  // namespace timer
