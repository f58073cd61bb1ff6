// SPDX-License-Identifier: Apache-2.0

#include <asio.hpp>
#include <chrono>
#include <memory>

#include "timer/contest.h"

namespace timer {

namespace {

class Timers {
  public:
    Timers(size_t most, Fired fired) : mFired(std::move(fired)), mIntervals(most) {
        mTimers.reserve(most);
        for (size_t i = 0; i < most; ++i) mTimers.emplace_back(mContext);
    }
    void add(size_t timer, int intervalMs) {
        mIntervals[timer] = std::chrono::milliseconds(intervalMs);
        reset(timer);
    }
    void reset(size_t timer) {
        mTimers[timer].expires_after(mIntervals[timer]);
        await(timer);
    }
    void remove(size_t timer) { mTimers[timer].cancel(); }
    void run(const std::function<void()>& first) {
        ::asio::post(mContext, first);
        mContext.run();
    }
    void stop() { mContext.stop(); }

  private:
    void await(size_t timer) {
        mTimers[timer].async_wait([this, timer](std::error_code error) {
            if (error) return;  // it was reset or removed
            mFired(timer);
            mTimers[timer].expires_at(mTimers[timer].expiry() + mIntervals[timer]);
            await(timer);
        });
    }

    Fired mFired;
    ::asio::io_context mContext{ASIO_CONCURRENCY_HINT_UNSAFE};  // one thread does it all
    std::vector<std::chrono::milliseconds> mIntervals;
    std::vector<::asio::steady_timer> mTimers;
};

}  // namespace

std::vector<bench::Contest> asio() { return contests<Timers>("asio"); }

}  // namespace timer
