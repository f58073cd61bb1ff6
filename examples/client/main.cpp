// SPDX-License-Identifier: Apache-2.0

// line_client HOST PORT
//
// Sends what it reads on its standard input, a terminal or a pipe, to a service and prints what
// comes back. HOST may be a name: it is looked up beside the loop, and its addresses are tried one
// after the other. It comes again when the connection is lost. When its input has ended it waits
// for the last answers, until the service hangs up. SIGINT and SIGTERM end it at once.
#include <vyn/client_device.h>
#include <vyn/config.h>
#include <vyn/console_device.h>
#include <vyn/handler.h>
#include <vyn/network.h>
#include <vyn/signal_device.h>
#include <vyn/thread_pool.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Addresses = std::vector<vyn::SocketAddress>;

// Between the standard input and the service.
class LineClient : public vyn::Handler, public vyn::WriteListener {
  public:
    LineClient(vyn::Connector& loop, const std::string& host, int port)
        : Handler(loop),
          mHost(host),
          mPort(port),
          mService(
              "", port, options(),
              {[this] { onConnected(); }, [this](const auto& failure) { onFailed(failure); }}) {
        mAnswers.setWriteListener(this);
        mLoop.addWorkerLocked(&mAnswers, this);
        mLoop.addWorkerLocked(&mLines, this);
        lookUp();
    }
    ~LineClient() override {
        mLoop.removeWorkerLocked(&mLines);
        mLoop.removeWorkerLocked(&mAnswers);
    }

    void onDisconnected(vyn::Worker* worker) override {
        worker == &mLines ? onInputEnded() : onServiceLost();
    }
    // What was said has been sent.
    void onWritten(vyn::Worker*) override {
        mLines.resumeReading();
        endSaying();
    }

  private:
    // How often a name is looked up that has no addresses.
    static constexpr int kAgainMs = 1000;
    // More than 100 end a connection.
    static constexpr int kManyWrites = 50;

    struct Answers : vyn::Worker {
        using Worker::Worker;
        bool handledBeforeParser(const void* data, int len) override {
            std::cout.write(static_cast<const char*>(data), len).flush();
            return true;
        }
    };
    // What is read before there is a connection waits for it, and the input for the service.
    struct Lines : vyn::Worker {
        Lines(vyn::Device& input, vyn::Worker& itsService)
            : Worker(&input, nullptr), service(itsService) {}
        bool handledBeforeParser(const void* data, int len) override {
            service.queueWritting(data, len);
            if (service.pendingWrites() > kManyWrites) pauseReading();
            return true;
        }
        vyn::Worker& service;
    };

    static vyn::ClientOptions options() {
        vyn::ClientOptions options;
        options.reconnect = true;
        return options;
    }

    // Asking for addresses may take many seconds, so another thread does.
    void lookUp() {
        if (std::exchange(mIsAsking, true)) return;
        const auto found = std::make_shared<Addresses>();
        mPool.addTask(
            [found, host = mHost, port = mPort] { *found = vyn::helper::resolve(host, port); },
            mLoop, [this, found] { take(*found); });
    }
    // For the next attempt, if one is under way; else it is the first.
    void take(const Addresses& found) {
        mIsAsking = false;
        mAddresses = found;
        mNext = 0;
        if (found.empty()) {
            mLoop.post([this] { lookUp(); }, kAgainMs);
            return;
        }
        useNextAddress();
        if (!mService.willReconnect()) mService.connect();
    }
    void useNextAddress() { mService.setAddress(mAddresses[mNext++]); }
    void onConnected() {
        std::cerr << "connected with " << mService.socket().getRemoteIP() << std::endl;
        endSaying();
    }
    // The name may lead elsewhere by now when all that it led to have been tried.
    void onFailed(const vyn::ConnectFailure& failure) {
        std::cerr << "no connection: " << std::strerror(failure.error) << std::endl;
        mNext < mAddresses.size() ? useNextAddress() : lookUp();
    }
    void onServiceLost() {
        if (!mService.willReconnect()) return mLoop.stop();
        if (mInputHasEnded) return mService.disconnect();
        std::cerr << "the connection is lost" << std::endl;
        mLines.resumeReading();  // what waited is lost, too
    }
    void onInputEnded() {
        mLoop.removeWorkerLocked(&mLines);
        mInputHasEnded = true;
        endSaying();
    }
    // The service learns that there is no more to come once it has got everything.
    void endSaying() {
        if (!mInputHasEnded || !mService.isConnected() || mAnswers.hasWrittingData()) return;
        mService.socket().shutdownSend();
    }

    Addresses mAddresses;
    size_t mNext = 0;
    bool mInputHasEnded = false;
    bool mIsAsking = false;
    const std::string mHost;
    const int mPort;
    vyn::ThreadPool mPool{1};
    vyn::ClientDevice mService;
    Answers mAnswers{&mService, nullptr};
    vyn::ConsoleDevice mInput;
    Lines mLines{mInput, mAnswers};
};

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: line_client HOST PORT" << std::endl;
        return 2;
    }
    vyn::config::setAsyncWritting(true);
    vyn::Connector loop;
    vyn::Handler nothing(loop);
    vyn::SignalDevice signals({SIGINT, SIGTERM}, [&](const auto&) { loop.stop(); });
    vyn::Worker stopping(&signals, nullptr);
    loop.addWorkerLocked(&stopping, &nothing);
    LineClient client(loop, argv[1], std::atoi(argv[2]));
    loop.run();
}
