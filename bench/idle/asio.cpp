// SPDX-License-Identifier: Apache-2.0

#include <asio.hpp>
#include <chrono>
#include <list>

#include "idle/turn.h"

namespace idle {

namespace {

using Descriptor = ::asio::posix::stream_descriptor;

class Loop {
  public:
    void addConnection(int fd) {
        Descriptor& connection = mConnections.emplace_back(mContext, fd);
        connection.async_wait(Descriptor::wait_read, [](std::error_code) {});
    }
    void addTimer(int intervalMs) {
        auto& timer = mTimers.emplace_back(mContext, std::chrono::milliseconds(intervalMs));
        timer.async_wait([](std::error_code) {});
    }
    void run(int ready, Turn& turn) {
        Descriptor descriptor(mContext, ready);
        await(descriptor, turn);
        mContext.run();
    }

  private:
    void await(Descriptor& descriptor, Turn& turn) {
        descriptor.async_wait(Descriptor::wait_read, [&](std::error_code) {
            turn() ? await(descriptor, turn) : mContext.stop();
        });
    }

    ::asio::io_context mContext{ASIO_CONCURRENCY_HINT_UNSAFE};  // one thread does it all
    std::list<Descriptor> mConnections;
    std::list<::asio::steady_timer> mTimers;
};

}  // namespace

std::vector<bench::Contest> asio() { return turnContests<Loop>("asio"); }

}  // namespace idle
