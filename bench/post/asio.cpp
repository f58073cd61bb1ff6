// SPDX-License-Identifier: Apache-2.0

#include <asio.hpp>

#include "post/contest.h"

namespace post {

namespace {

class Loop {
  public:
    explicit Loop(Receiver& receiver) : mReceiver(receiver) {}
    void post(const Item& item) {
        ::asio::post(mContext, [this, item] { mReceiver.receive(item); });
    }
    void run() { mContext.run(); }
    void stop() { mContext.stop(); }

  protected:
    ::asio::io_context mContext{1};  // one thread runs it

  private:
    Receiver& mReceiver;
    ::asio::executor_work_guard<::asio::io_context::executor_type> mStay{mContext.get_executor()};
};

// Without a descriptor asio's loop waits at a condition variable. This one has a socket, as a loop
// that serves anybody has, and waits in epoll, as all others do.
class ServingLoop : public Loop {
  public:
    explicit ServingLoop(Receiver& receiver) : Loop(receiver) {
        mSocket.async_wait(::asio::socket_base::wait_read, [](const ::asio::error_code&) {});
    }

  private:
    ::asio::ip::udp::socket mSocket{mContext, {::asio::ip::address_v4::loopback(), 0}};
};

}  // namespace

std::vector<bench::Contest> asio() {
    std::vector<bench::Contest> all = contests<Loop>("asio");
    for (bench::Contest& contest : contests<ServingLoop>("asio-serving")) {
        all.push_back(std::move(contest));
    }
    return all;
}

}  // namespace post
