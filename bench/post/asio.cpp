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

  private:
    Receiver& mReceiver;
    ::asio::io_context mContext{1};  // one thread runs it
    ::asio::executor_work_guard<::asio::io_context::executor_type> mStay{mContext.get_executor()};
};

}  // namespace

std::vector<bench::Contest> asio() { return contests<Loop>("asio"); }

}  // namespace post
