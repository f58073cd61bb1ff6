// SPDX-License-Identifier: Apache-2.0

#include <uv.h>

#include <list>

#include "idle/turn.h"

namespace idle {

namespace {

class Loop {
  public:
    Loop() { uv_loop_init(&mLoop); }
    void addConnection(int fd) {
        uv_pipe_t& pipe = mConnections.emplace_back();
        uv_pipe_init(&mLoop, &pipe, 0);
        uv_pipe_open(&pipe, fd);
        const auto lendNothing = [](uv_handle_t*, size_t, uv_buf_t* buffer) {
            *buffer = uv_buf_init(nullptr, 0);
        };
        const auto ignore = [](uv_stream_t*, ssize_t, const uv_buf_t*) {};
        uv_read_start(reinterpret_cast<uv_stream_t*>(&pipe), lendNothing, ignore);
    }
    void addTimer(int intervalMs) {
        uv_timer_t& timer = mTimers.emplace_back();
        const auto interval = static_cast<uint64_t>(intervalMs);
        uv_timer_init(&mLoop, &timer);
        uv_timer_start(
            &timer, [](uv_timer_t*) {}, interval, interval);
    }
    void run(int ready, Turn& turn) {
        uv_poll_t poll;
        uv_poll_init(&mLoop, &poll, ready);
        poll.data = &turn;
        const auto onReadable = [](uv_poll_t* handle, int, int) {
            if (!(*static_cast<Turn*>(handle->data))()) uv_stop(handle->loop);
        };
        uv_poll_start(&poll, UV_READABLE, onReadable);
        uv_run(&mLoop, UV_RUN_DEFAULT);
    }

  private:
    uv_loop_t mLoop;
    std::list<uv_pipe_t> mConnections;
    std::list<uv_timer_t> mTimers;
};

}  // namespace

std::vector<bench::Contest> libuv() { return turnContests<Loop>("libuv"); }

}  // namespace idle
