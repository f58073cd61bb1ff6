// SPDX-License-Identifier: Apache-2.0

// discovery [ADDRESS [INTERFACE]]    who offers something on this network? Datagrams ask everybody,
// and whoever offers it answers to the one that asked. ADDRESS is a broadcast address, at first
// that of this machine alone, or a multicast group. Prints:
//
//     ask 127.255.255.255 for a printer
//     127.0.0.1 offers: printer in the hall
//     127.0.0.1 offers: printer upstairs
#include <vyn/datagram_device.h>
#include <vyn/handler.h>
#include <vyn/timer.h>

#include <algorithm>
#include <iostream>
#include <set>

constexpr int kPort = 7008;

using Datagram = vyn::DatagramDevice::Datagram;

std::string textOf(const Datagram& datagram) {
    return {static_cast<const char*>(datagram.data), static_cast<size_t>(datagram.size)};
}

// A device with its worker, in a loop.
class Datagrams : public vyn::Handler {
  public:
    Datagrams(vyn::Connector& loop, vyn::DatagramDevice::Function onDatagram)
        : Handler(loop), device(std::move(onDatagram)) {}
    ~Datagrams() override { mLoop.removeWorkerLocked(&mWorker); }
    void serve() { mLoop.addWorkerLocked(&mWorker, this); }

    vyn::DatagramDevice device;

  private:
    vyn::Worker mWorker{&device, nullptr};
};

// Answers who asks for what it offers.
class Offer {
  public:
    Offer(vyn::Connector& loop, const std::string& what)
        : mWhat(what), mDatagrams(loop, [this](const Datagram& question) { answer(question); }) {}
    bool start(const std::string& address, const std::string& interface) {
        vyn::Socket& socket = mDatagrams.device.socket();
        socket.setReuseAddress(true);  // others on this machine offer something, too
        if (!mDatagrams.device.bind(kPort)) return false;
        if (isGroup(address) && !socket.joinGroup(address, interface)) return false;
        mDatagrams.serve();
        return true;
    }
    static bool isGroup(const std::string& address) {
        const int first = std::atoi(address.c_str());
        return first >= 224 && first < 240;
    }

  private:
    void answer(const Datagram& question) {
        const std::string text = textOf(question);
        if (text.empty() || mWhat.find(text) == std::string::npos) return;
        mDatagrams.device.sendTo(mWhat.data(), static_cast<int>(mWhat.size()), question.from);
    }

    const std::string mWhat;
    Datagrams mDatagrams;
};

// Asks, again and again, as a datagram may get lost, until it has two answers or has asked enough.
class Search : public vyn::Timer {
  public:
    Search(vyn::Connector& loop, const std::string& what)
        : mLoop(loop),
          mWhat(what),
          mDatagrams(loop, [this](const Datagram& answer) { note(answer); }) {}
    bool start(const std::string& address, const std::string& interface) {
        vyn::Socket& socket = mDatagrams.device.socket();
        if (!vyn::SocketAddress::parse(address, kPort, &mEverybody)) return false;
        if (Offer::isGroup(address) ? !socket.setGroupInterface(interface)
                                    : !socket.setBroadcast(true)) {
            return false;
        }
        mDatagrams.serve();
        std::cout << "ask " << address << " for a " << mWhat << std::endl;
        mLoop.addTimer(this, 50, nullptr);
        return true;
    }
    bool onTimer(void*, int count) override {
        if (mFound.size() == 2 || count > 20) mLoop.stop();
        mDatagrams.device.sendTo(mWhat.data(), static_cast<int>(mWhat.size()), mEverybody);
        return true;
    }
    const std::set<std::string>& found() const { return mFound; }

  private:
    // Answers come once for each question.
    void note(const Datagram& answer) {
        mFound.insert(answer.from.ip() + " offers: " + textOf(answer));
    }

    vyn::Connector& mLoop;
    const std::string mWhat;
    vyn::SocketAddress mEverybody;
    std::set<std::string> mFound;
    Datagrams mDatagrams;
};

int main(int argc, char** argv) {
    const std::string address = argc > 1 ? argv[1] : "127.255.255.255";
    const std::string interface = argc > 2 ? argv[2] : "";
    vyn::Connector loop;
    Offer upstairs(loop, "printer upstairs"), hall(loop, "printer in the hall"), door(loop, "bell");
    Search search(loop, "printer");
    for (Offer* each : {&upstairs, &hall, &door}) {
        if (!each->start(address, interface)) return 1;
    }
    if (!search.start(address, interface)) return 1;
    loop.run();
    for (const std::string& each : search.found()) std::cout << each << std::endl;
    return search.found().size() == 2 ? 0 : 1;
}
