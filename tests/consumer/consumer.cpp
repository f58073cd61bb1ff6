// SPDX-License-Identifier: Apache-2.0

// A program as an application would write it: a timer posts a message to the loop, which carries
// bytes that come back out of an archive. Ends with status 0 when all of it arrived.
#include <vyn/archive.h>
#include <vyn/handler.h>
#include <vyn/logging.h>
#include <vyn/timer.h>

#include <string>

namespace {

class Receiver : public vyn::Handler {
  public:
    using Handler::Handler;
    void onMessage(vyn::Message message) override {
        *static_cast<vyn::Archive*>(message.obj) >> mText;
        vyn::Connector::current()->stop();
    }

    const std::string& text() const { return mText; }

  private:
    std::string mText;
};

class Sender : public vyn::Timer {
  public:
    explicit Sender(vyn::Connector::Executor& receiver) : mReceiver(receiver) {}

    bool onTimer(void* archive, int) override {
        mReceiver.sendMessage(vyn::Message::obtain(1, 0, 0, archive));
        return false;
    }

  private:
    vyn::Connector::Executor& mReceiver;
};

}  // namespace

int main() {
    vyn::Connector loop;
    Receiver receiver(loop);
    Sender sender(receiver);
    vyn::Archive archive;
    archive << std::string("text from an archive");
    loop.addTimer(&sender, 1, &archive);
    loop.run();
    VYN_LOG_INFO << "arrived: " << receiver.text();
    return receiver.text() == "text from an archive" ? 0 : 1;
}
