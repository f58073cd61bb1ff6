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

// The same with functions in the place of messages.
class FunctionLoop {
  public:
    explicit FunctionLoop(Receiver& receiver) : mReceiver(receiver) {}
    void post(const Item& item) {
        mConnector.post([this, what = item.what] { mReceiver.receive({what, this}); });
    }
    void run() { mConnector.run(); }
    void stop() { mConnector.stop(); }

  private:
    Receiver& mReceiver;
    vyn::Connector mConnector;
};

}  // namespace

std::vector<bench::Contest> ours() {
    std::vector<bench::Contest> all = contests<Loop>("ours");
    for (bench::Contest& contest : contests<FunctionLoop>("ours-function")) {
        all.push_back(std::move(contest));
    }
    return all;
}

}  // namespace post
