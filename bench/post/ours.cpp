// SPDX-License-Identifier: Apache-2.0

#include <vyn/handler.h>

#include "post/contest.h"

namespace post {

namespace {

class Inbox : public vyn::Handler {
  public:
    Inbox(vyn::Connector& loop, Receiver& receiver) : Handler(loop), mReceiver(receiver) {}
    void onMessage(vyn::Message message) override {
        mReceiver.receive({message.what, message.obj});
    }

  private:
    Receiver& mReceiver;
};

class Loop {
  public:
    explicit Loop(Receiver& receiver) : mInbox(mConnector, receiver) {}
    void post(const Item& item) {
        mInbox.sendMessage(vyn::Message::obtain(item.what, 0, 0, item.object));
    }
    void run() { mConnector.run(); }
    void stop() { mConnector.stop(); }

  private:
    vyn::Connector mConnector;
    Inbox mInbox;
};

}  // namespace

std::vector<bench::Contest> ours() { return contests<Loop>("ours"); }

}  // namespace post
