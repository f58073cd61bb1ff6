// SPDX-License-Identifier: Apache-2.0

// loop_per_core [LOOPS]    a loop for each processor, all serving one port: each thread has its own
// listener, and the kernel spreads the connections over them. Nothing is shared, so nothing is
// locked. Prints:
//
//     ... loops serve port ...
//     100 connections answered
//     stopped
#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/net_device.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>

// A socket that others may share the port with.
vyn::Socket boundTo(int port) {
    vyn::Socket socket(vyn::Socket::TCP);
    const bool isBound =
        socket.setReusePort(true) && socket.setHostIP("127.0.0.1") && socket.bind(port);
    return isBound ? socket : vyn::Socket();
}

// Answers who connects with the number of its loop.
class Service : public vyn::Handler {
  public:
    Service(vyn::Connector& loop, const vyn::Socket& bound, int number)
        : Handler(loop), mListener(&bound), mNumber(static_cast<char>(number)) {
        mLoop.addWorkerLocked(&mListening, this);
    }
    ~Service() override { mLoop.removeWorkerLocked(&mListening); }
    void onNewConnection(vyn::Worker*, int, void* data) override {
        const auto* socket = static_cast<const vyn::Socket*>(data);
        if (!socket->isValid()) return;
        auto* peer = new Peer(socket);
        mLoop.addWorkerLocked(peer, this);
        peer->writeRaw(&mNumber, 1);
    }
    void onDisconnected(vyn::Worker* peer) override {
        mLoop.removeWorkerLocked(peer);
        delete peer;
    }

  private:
    struct Peer : vyn::Worker {
        explicit Peer(const vyn::Socket* socket) : Worker(new vyn::NetDevice(socket), nullptr) {}
        ~Peer() override { delete getDevice(); }
        bool handledBeforeParser(const void*, int) override { return true; }
    };

    vyn::ListenerDevice mListener;
    vyn::Worker mListening{&mListener, nullptr};
    const char mNumber;
};

// A thread with its loop and what that serves. It listens when the constructor is done: who joins
// the others later may cost a connection that is just being made.
class LoopThread {
  public:
    LoopThread(vyn::Socket bound, int number)
        : mThread([this, socket = std::move(bound), number] { run(socket, number); }),
          mLoop(mBegun.get_future().get()) {}
    ~LoopThread() {
        mLoop->requestStop();
        mStopped.set_value();
        mThread.join();
    }

  private:
    // The thread that runs a loop also makes and destroys it, but not while another uses it.
    void run(const vyn::Socket& socket, int number) {
        vyn::Connector loop;
        Service service(loop, socket, number);
        mBegun.set_value(&loop);
        loop.run();
        mStopped.get_future().wait();
    }

    std::promise<vyn::Connector*> mBegun;
    std::promise<void> mStopped;
    std::thread mThread;
    vyn::Connector* const mLoop;
};

// How many of so many connections are answered. A blocking socket is enough for that.
int tryOut(int port, int connections) {
    int answered = 0;
    for (int i = 0; i < connections; ++i) {
        vyn::Socket socket(vyn::Socket::TCP);
        char number = 0;
        if (socket.connect("127.0.0.1", port) && socket.recv(&number, 1, 5000) == 1) ++answered;
    }
    return answered;
}

int main(int argc, char** argv) {
    vyn::config::setAsyncWritting(true);
    const unsigned cores = std::max(std::thread::hardware_concurrency(), 1u);
    const int count = argc > 1 ? std::atoi(argv[1]) : static_cast<int>(cores);
    vyn::Socket first = boundTo(0);  // on a port that is free
    const int port = first.getHostPort();
    std::vector<std::unique_ptr<LoopThread>> loops;
    for (int i = 0; i < count; ++i) {
        loops.push_back(std::make_unique<LoopThread>(i == 0 ? std::move(first) : boundTo(port), i));
    }
    std::cout << count << " loops serve port " << port << std::endl;
    const int answered = tryOut(port, 100);
    std::cout << answered << " connections answered" << std::endl;
    loops.clear();
    std::cout << "stopped" << std::endl;
    return answered == 100 ? 0 : 1;
}
