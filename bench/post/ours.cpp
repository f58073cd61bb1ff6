#include <vyn/connector.h>

#include "post/contest.h"
#include "support/executor.h"

namespace post {

namespace {

class Loop : bench::Executor {
  public:
    explicit Loop(Receiver& receiver) : mReceiver(receiver) { mConnector.attach(this); }
    void post(const Item& item) { sendMessage(vyn::Message::obtain(item.what, 0, 0, item.object)); }
    void run() { mConnector.run(); }
    void stop() { mConnector.stop(); }

  private:
    void onMessage(vyn::Message message) override {
        mReceiver.receive({message.what, message.obj});
    }

    Receiver& mReceiver;
    vyn::Connector mConnector;
};

}  // namespace

std::vector<bench::Contest> ours() { return contests<Loop>("ours"); }

}  // namespace post
