// SPDX-License-Identifier: Apache-2.0

#include <sys/epoll.h>

#include <algorithm>
#include <set>

#include "idle/turn.h"

namespace idle {

namespace {

constexpr int kEvents = 64;

class Loop {
  public:
    void addConnection(int fd) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        bench::require(epoll_ctl(mEpoll, EPOLL_CTL_ADD, fd, &event) == 0, "epoll_ctl");
    }
    void addTimer(int intervalMs) { mDue.insert(nowMs() + intervalMs); }
    void run(int ready, Turn& turn) {
        addConnection(ready);
        epoll_event events[kEvents];
        for (bool running = true; running;) {
            const int count = epoll_wait(mEpoll, events, kEvents, timeout());
            for (int i = 0; i < count; ++i) running = turn() && running;
        }
    }

  private:
    static int64_t nowMs() { return bench::now() / 1000000; }
    int timeout() const {
        if (mDue.empty()) return mLongestWaitMs;
        return static_cast<int>(std::max<int64_t>(*mDue.begin() - nowMs(), 0));
    }

    int mEpoll = epoll_create1(EPOLL_CLOEXEC);
    std::multiset<int64_t> mDue;

  protected:
    int mLongestWaitMs = -1;
};

// Wakes five times a second, as ours does, and does nothing then.
class WakingLoop : public Loop {
  public:
    WakingLoop() { mLongestWaitMs = 200; }
};

}  // namespace

std::vector<bench::Contest> epoll() {
    std::vector<bench::Contest> all = turnContests<Loop>("epoll");
    all.push_back({"rest-10-connections", "epoll-waking", [] { measureRest<WakingLoop>(10); }});
    return all;
}

}  // namespace idle
