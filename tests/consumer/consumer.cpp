// A program as an application would write it: a timer posts a message to the loop, which carries
// bytes that come back out of an archive. Ends with status 0 when all of it arrived.
#include <vyn/archive.h>
#include <vyn/connector.h>
#include <vyn/logging.h>
#include <vyn/message.h>
#include <vyn/timer.h>

#include <string>

namespace {

class Receiver : public vyn::Connector::Executor {
  public:
    void onMessage(vyn::Message message) override {
        *static_cast<vyn::Archive*>(message.obj) >> mText;
        vyn::Connector::current()->stop();
    }
    void onCommand(vyn::Worker*, vyn::Command*) override {}
    void onNewConnection(vyn::Worker*, int, void*) override {}
    void onDisconnected(vyn::Worker*) override {}
    void onHeartbitTimeout(vyn::Worker*) override {}
    void onNetworkChanged(vyn::Worker*) override {}
    void onFileChanged(vyn::Worker*, const std::string&, int) override {}
    void onAuthenticated(vyn::Worker*) override {}
    void onAuthenticationFailed(vyn::Worker*) override {}

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
    Receiver receiver;
    Sender sender(receiver);
    vyn::Archive archive;
    archive << std::string("text from an archive");
    loop.attach(&receiver);
    loop.addTimer(&sender, 1, &archive);
    loop.run();
    VYN_LOG_INFO << "arrived: " << receiver.text();
    return receiver.text() == "text from an archive" ? 0 : 1;
}
