// soak SECONDS: two loops whose connections come and go, or are flooded until they overflow, while
// other threads post messages, write, and add and remove workers and timers. Ends with status 1
// when a byte, a message, a timer or an end is missing, when something has not happened at all, or
// when more memory is in use at the end than after a third of the time.
#include <unistd.h>
#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/logging.h>
#include <vyn/net_device.h>
#include <vyn/timer.h>
#include <vyn/unix_device.h>
#include <vyn/worker.h>

#include <fstream>
#include <iostream>
#include <iterator>

#include "support/loop_thread.h"

namespace {

using namespace vyn;

constexpr long kToleranceKb = 8 * 1024;  // for what allocator and sanitizers take meanwhile
constexpr int kPatienceMs = 60000;

enum What {
    kAdded,
    kRemoved,
    kPosted,
    kDelivered,
    kSet,
    kUnset,
    kFired,
    kRounds,
    kFloods,
    kFaults
};
constexpr const char* kNames[] = {
    "workers added", "workers removed", "messages posted", "messages delivered", "timers set",
    "timers unset",  "timers fired",    "clients served",  "overflows",          "faults"};
std::atomic<long> gCounts[std::size(kNames)];
std::atomic<bool> gEnds{false};

void expect(bool holds, const char* what) {
    if (!holds && ++gCounts[kFaults] < 10) std::cout << "FAULT: " << what << std::endl;
}

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

void expectSoon(What done, What begun) {
    for (int ms = 0; ms < kPatienceMs && gCounts[done] != gCounts[begun]; ms += 10) sleepMs(10);
    expect(gCounts[done] == gCounts[begun], kNames[done]);
}

// Sends back what comes.
struct Echo : Worker {
    explicit Echo(Device* itsDevice) : Worker(itsDevice, nullptr), device(itsDevice) {}
    bool handledBeforeParser(const void* data, int len) override {
        return writeRaw(data, len), true;
    }
    const std::unique_ptr<Device> device;
};

struct Service : Handler {
    Service(Connector& itsLoop, int number)
        : Handler(itsLoop), path("@soak." + std::to_string(number)), loop(itsLoop) {
        for (Worker& worker : listening) loop.addWorkerLocked(&worker, this);
    }
    ~Service() override {
        for (Worker& worker : listening) loop.removeWorkerLocked(&worker);
    }
    void onNewConnection(Worker* worker, int, void* data) override {
        worker == listening ? add(new NetDevice(static_cast<Socket*>(data)))
                            : add(new UnixDevice(static_cast<UnixSocket*>(data)));
    }
    Worker* add(Device* device) {
        ++gCounts[kAdded];
        auto* const worker = new Echo(device);
        loop.addWorkerLocked(worker, this);
        return worker;
    }
    void onDisconnected(Worker* worker) override {
        ++gCounts[kRemoved];
        loop.removeWorkerLocked(worker);
        delete static_cast<Echo*>(worker);
    }
    void onMessage(Message) override { ++gCounts[kDelivered]; }

    const std::string path;
    Connector& loop;
    ListenerDevice tcp{0, "127.0.0.1"};
    UnixListenerDevice unix{path};
    Worker listening[2]{{&tcp, nullptr}, {&unix, nullptr}};
};

// Connects over either transport.
SocketBase& connect(Service& service, Socket& tcp, UnixSocket& unix) {
    const bool isTcp = std::rand() % 2 == 0;
    const int port = service.tcp.socket().getHostPort();
    expect(isTcp ? tcp.connect("127.0.0.1", port) : unix.connect(service.path), "no connection");
    return isTcp ? static_cast<SocketBase&>(tcp) : unix;
}

void comeAndGo(Service& service) {
    for (; !gEnds; ++gCounts[kRounds]) {
        Socket tcp(Socket::TCP);
        UnixSocket unix(UnixSocket::STREAM);
        SocketBase& client = connect(service, tcp, unix);
        std::string sent(static_cast<size_t>(1 + std::rand() % 100000), ' '), came;
        for (char& byte : sent) byte = static_cast<char>(std::rand());
        int got = client.send(sent.data(), static_cast<int>(sent.size()));
        for (char buffer[4096]; got > 0 && came.size() < sent.size();
             came.append(buffer, buffer + got)) {
            got = std::max(client.recv(buffer, sizeof buffer, kPatienceMs), 0);
        }
        expect(came == sent, "bytes are missing, or wrong");
    }
}

// Sends and never reads, until the service takes it for one that does not.
void flood(Service& service) {
    const std::string bytes(65536, 'x');
    for (; !gEnds; ++gCounts[kFloods], sleepMs(20)) {
        Socket tcp(Socket::TCP);
        UnixSocket unix(UnixSocket::STREAM);
        SocketBase& client = connect(service, tcp, unix);
        while (client.send(bytes.data(), 65536) > 0) continue;
    }
}

struct Beat : Timer {
    bool onTimer(void*, int times) override { return ++gCounts[kFired], times < 3; }
    void onTimerRemoved() override { ++gCounts[kUnset], delete this; }
};

// Uses what any thread may use.
void useFromOutside(Service& service) {
    UnixSocket listener(UnixSocket::STREAM);
    expect(listener.bind(service.path + ".outside") && listener.listen(), "no listener");
    for (int timer = 0; !gEnds; sleepMs(2)) {
        if (timer % 2 != 0) service.loop.removeTimer(timer);
        timer = service.loop.addTimer(new Beat, 1 + std::rand() % 5, nullptr);
        service.loop.resetTimer(timer);
        service.sendMessageDelayed(Message::obtain(), ++gCounts[kSet] % 3);
        ++gCounts[kPosted];
        UnixSocket client(UnixSocket::STREAM);
        expect(client.connect(service.path + ".outside"), "no connection to the outside");
        const UnixSocket accepted = listener.accept();
        Worker* const worker = service.add(new UnixDevice(&accepted));
        for (int sent = 0, came = 0; sent < 200; ++sent) {
            worker->queueWritting(&sent, sizeof sent);
            if (sent < 50) continue;  // fewer than 100 may wait
            client.recv(&came, sizeof came, kPatienceMs);
            expect(came == sent - 50, "a write from outside is missing");
        }
    }
}

// The least of some samples, since what comes and goes is not what stays.
long residentKb() {
    long size = 0, pages = 0, least = -1;
    for (int i = 0; i < 40; ++i, sleepMs(50)) {
        std::ifstream("/proc/self/statm") >> size >> pages;
        if (least < 0 || pages < least) least = pages;
    }
    return least * (sysconf(_SC_PAGESIZE) / 1024);
}

void soak(int seconds) {
    vyn::testing::LoopThread loops[2];
    std::unique_ptr<Service> services[2];
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        auto& service = services[i];
        Connector& loop = loops[i].connector();
        loops[i].call([&] { service = std::make_unique<Service>(loop, getpid() * 2 + i); });
        for (const auto act : {comeAndGo, flood, useFromOutside}) {
            threads.emplace_back([act, &service] { act(*service); });
        }
    }
    sleepMs(seconds * 333);
    const long before = residentKb();
    sleepMs(seconds * 667);
    const long after = residentKb();
    std::cout << before << " KiB in use after a third, " << after << " KiB at the end" << std::endl;
    expect(after <= before + kToleranceKb, "memory has grown");
    gEnds = true;
    for (std::thread& thread : threads) thread.join();
    expectSoon(kRemoved, kAdded);
    expectSoon(kDelivered, kPosted);
    expectSoon(kUnset, kSet);
    for (int i = 0; i < 2; ++i) loops[i].call([&] { services[i].reset(); });
}

}  // namespace

int main(int, char** arguments) {
    logging::setLogLevel(1);  // errors
    vyn::config::setAsyncWritting(true);
    soak(std::atoi(arguments[1]));
    for (size_t what = 0; what < std::size(gCounts); ++what) {
        std::cout << gCounts[what] << " " << kNames[what] << std::endl;
        expect(gCounts[what] > 0 || what == kFaults, "something has not happened");
    }
    return gCounts[kFaults] == 0 ? 0 : 1;
}
