// SPDX-License-Identifier: Apache-2.0

// A client that stays with its server: connecting does not hold its loop up, it greets the server
// whenever there is a connection, and it comes again after the server has gone. Prints:
//
//     connected, 1
//     the server says: welcome
//     lost, and on the way back
//     no connection: Connection refused, attempt 1
//     ...
//     connected, 2
//     the server says: welcome
//     ended
#include <vyn/client_device.h>
#include <vyn/config.h>
#include <vyn/framing.h>
#include <vyn/handler.h>

#include <cstring>
#include <iostream>
#include <memory>

class Client : public vyn::Handler {
  public:
    Client(vyn::Connector& loop, int port)
        : Handler(loop),
          mDevice("127.0.0.1", port, options(),
                  {[this] { onConnected(); },
                   [](const vyn::ConnectFailure& failure) { onFailed(failure); }}) {
        mLoop.addWorkerLocked(&mWorker, this);
        mDevice.connect();  // the rest follows once the loop runs
    }
    ~Client() override { mLoop.removeWorkerLocked(&mWorker); }

    void onCommand(vyn::Worker*, vyn::Command* line) override {
        std::cout << "the server says: " << static_cast<vyn::Line*>(line)->text << std::endl;
        if (mConnections == 2) mDevice.disconnect();
    }
    // The connection is lost, or is not wanted any more.
    void onDisconnected(vyn::Worker*) override {
        if (mDevice.willReconnect()) {
            std::cout << "lost, and on the way back" << std::endl;
        } else {
            std::cout << "ended" << std::endl;
            mLoop.stop();
        }
    }

    int connections() const { return mConnections; }

  private:
    static vyn::ClientOptions options() {
        vyn::ClientOptions options;
        options.reconnect = true;
        options.firstDelayMs = 20;  // these two are short, for there is nobody to be spared
        options.longestDelayMs = 50;
        return options;
    }
    void onConnected() {
        std::cout << "connected, " << ++mConnections << std::endl;
        mParser.clear();  // of half a line of the last connection
        vyn::Line greeting("hello");
        mWorker.write(&greeting);
    }
    static void onFailed(const vyn::ConnectFailure& failure) {
        std::cout << "no connection: " << std::strerror(failure.error) << ", attempt "
                  << failure.attempt << std::endl;
    }

    int mConnections = 0;
    vyn::ClientDevice mDevice;
    vyn::LineParser mParser{&mDevice};
    vyn::Worker mWorker{&mDevice, &mParser};
};

// What it talks to. It serves one at a time, answers the greeting, hangs up and is away for a
// while.
class Server : public vyn::Handler {
  public:
    explicit Server(vyn::Connector& loop) : Handler(loop) { start(0); }
    ~Server() override { mLoop.removeWorkerLocked(&mListening); }

    int port() const { return mPort; }
    void onNewConnection(vyn::Worker*, int, void* data) override {
        const auto* socket = static_cast<const vyn::Socket*>(data);
        if (!socket->isValid()) return;
        mLoop.addWorkerLocked(new Peer(socket), this);
        mLoop.removeWorkerLocked(&mListening);
        mListener.socket().reset();
    }
    void onDisconnected(vyn::Worker* peer) override {
        mLoop.removeWorkerLocked(peer);
        delete peer;
        sendMessageDelayed(vyn::Message::obtain(), 100);
    }
    void onMessage(vyn::Message) override { start(mPort); }

  private:
    struct Peer : vyn::Worker {
        explicit Peer(const vyn::Socket* socket) : Worker(new vyn::NetDevice(socket), nullptr) {}
        ~Peer() override { delete getDevice(); }
        bool handledBeforeParser(const void*, int) override {
            writeRaw("welcome\n", 8);
            disconnectWhenWritten(1000);
            return true;
        }
    };
    void start(int port) {
        mListener.listen(port, "127.0.0.1");
        mPort = mListener.socket().getHostPort();
        mLoop.addWorkerLocked(&mListening, this);
    }

    int mPort = 0;
    vyn::ListenerDevice mListener;
    vyn::Worker mListening{&mListener, nullptr};
};

int main() {
    vyn::config::setAsyncWritting(true);
    vyn::Connector loop;
    Server server(loop);
    Client client(loop, server.port());
    loop.run();
    return client.connections() == 2 ? 0 : 1;
}
