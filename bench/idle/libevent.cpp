// SPDX-License-Identifier: Apache-2.0

#include <event2/event.h>

#include "idle/turn.h"

namespace idle {

namespace {

class Loop {
  public:
    void addConnection(int fd) {
        event_add(event_new(mBase, fd, EV_READ | EV_PERSIST, ignore, nullptr), nullptr);
    }
    void addTimer(int intervalMs) {
        const timeval interval{intervalMs / 1000, intervalMs % 1000 * 1000};
        event_add(event_new(mBase, -1, EV_PERSIST, ignore, nullptr), &interval);
    }
    void run(int ready, Turn& turn) {
        mTurn = &turn;
        const auto onReadable = [](evutil_socket_t, short, void* argument) {
            auto* self = static_cast<Loop*>(argument);
            if (!(*self->mTurn)()) event_base_loopbreak(self->mBase);
        };
        event_add(event_new(mBase, ready, EV_READ | EV_PERSIST, onReadable, this), nullptr);
        event_base_dispatch(mBase);
    }

  private:
    static void ignore(evutil_socket_t, short, void*) {}

    event_base* mBase = event_base_new();
    Turn* mTurn = nullptr;
};

}  // namespace

std::vector<bench::Contest> libevent() { return turnContests<Loop>("libevent"); }

}  // namespace idle
