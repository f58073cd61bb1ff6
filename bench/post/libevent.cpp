// SPDX-License-Identifier: Apache-2.0

#include <event2/event.h>
#include <event2/thread.h>

#include "post/batch.h"

namespace post {

namespace {

class Loop {
  public:
    explicit Loop(Receiver& receiver) : mReceiver(receiver) {
        evthread_use_pthreads();
        mBase = event_base_new();
        const auto deliver = [](evutil_socket_t, short, void* argument) {
            auto* self = static_cast<Loop*>(argument);
            self->mBatch.deliver(self->mReceiver);
        };
        mEvent = event_new(mBase, -1, EV_PERSIST, deliver, this);
    }
    ~Loop() {
        event_free(mEvent);
        event_base_free(mBase);
    }
    void post(const Item& item) {
        if (mBatch.add(item)) event_active(mEvent, EV_READ, 0);
    }
    void run() { event_base_loop(mBase, EVLOOP_NO_EXIT_ON_EMPTY); }
    void stop() { event_base_loopbreak(mBase); }

  private:
    Receiver& mReceiver;
    Batch mBatch;
    event_base* mBase;
    event* mEvent;
};

}  // namespace

std::vector<bench::Contest> libevent() { return contests<Loop>("libevent"); }

}  // namespace post
