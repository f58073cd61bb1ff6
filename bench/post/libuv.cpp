// SPDX-License-Identifier: Apache-2.0

#include <uv.h>

#include "post/batch.h"

namespace post {

namespace {

class Loop {
  public:
    explicit Loop(Receiver& receiver) : mReceiver(receiver) {
        uv_loop_init(&mLoop);
        uv_async_init(&mLoop, &mAsync, [](uv_async_t* async) {
            auto* self = static_cast<Loop*>(async->data);
            self->mBatch.deliver(self->mReceiver);
        });
        mAsync.data = this;
    }
    ~Loop() {
        uv_close(reinterpret_cast<uv_handle_t*>(&mAsync), nullptr);
        uv_run(&mLoop, UV_RUN_DEFAULT);
        uv_loop_close(&mLoop);
    }
    void post(const Item& item) {
        if (mBatch.add(item)) uv_async_send(&mAsync);
    }
    void run() { uv_run(&mLoop, UV_RUN_DEFAULT); }
    void stop() { uv_stop(&mLoop); }

  private:
    Receiver& mReceiver;
    Batch mBatch;
    uv_loop_t mLoop;
    uv_async_t mAsync;
};

}  // namespace

std::vector<bench::Contest> libuv() { return contests<Loop>("libuv"); }

}  // namespace post
