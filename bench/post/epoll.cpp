// SPDX-License-Identifier: Apache-2.0

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "post/batch.h"

namespace post {

namespace {

class Loop {
  public:
    explicit Loop(Receiver& receiver) : mReceiver(receiver) {
        epoll_event event{};
        event.events = EPOLLIN;
        epoll_ctl(mEpoll, EPOLL_CTL_ADD, mWake, &event);
    }
    ~Loop() {
        close(mWake);
        close(mEpoll);
    }
    void post(const Item& item) {
        const uint64_t one = 1;
        if (mBatch.add(item)) bench::require(write(mWake, &one, sizeof one) > 0, "write");
    }
    void run() {
        while (mRunning) {
            epoll_event event;
            uint64_t count;
            if (epoll_wait(mEpoll, &event, 1, -1) < 1) continue;
            bench::require(read(mWake, &count, sizeof count) > 0, "read");
            mBatch.deliver(mReceiver);
        }
    }
    void stop() { mRunning = false; }

  private:
    Receiver& mReceiver;
    Batch mBatch;
    bool mRunning = true;
    int mEpoll = epoll_create1(EPOLL_CLOEXEC);
    int mWake = eventfd(0, EFD_CLOEXEC);
};

}  // namespace

std::vector<bench::Contest> epoll() { return contests<Loop>("epoll"); }

}  // namespace post
