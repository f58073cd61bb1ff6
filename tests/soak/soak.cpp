// SPDX-License-Identifier: Apache-2.0

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

#include "support/loop_thread.h"

namespace {

using namespace vyn;

constexpr long kToleranceKb = 8 * 1024;  // for what allocator and sanitizers take meanwhile
constexpr int kPatienceMs = 60000;

std::atomic<bool> gEnds{false};
std::atomic<long> gAdded, gRemoved, gPosted, gDelivered, gSet, gUnset, gFired, gServed, gFlooded;
std::atomic<long> gFaults;

void expect(bool holds, const char* what) {
    if (!holds && ++gFaults < 10) std::cout << "FAULT: " << what << std::endl;
}

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

void expectSoon(const std::atomic<long>& done, const std::atomic<long>& begun, const char* what) {
    for (int ms = 0; ms < kPatienceMs && done != begun; ms += 10) sleepMs(10);
    expect(done == begun, what);
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
    Service(Connector& itsLoop, int number) : Handler(itsLoop), id(number), loop(itsLoop) {
        loop.addWorkerLocked(&listening, this);
    }
    ~Service() override { loop.removeWorkerLocked(&listening); }
    void onNewConnection(Worker*, int, void* data) override {
        add(new NetDevice(static_cast<Socket*>(data)));
    }
    Worker* add(Device* device) {
        ++gAdded;
        auto* const worker = new Echo(device);
        loop.addWorkerLocked(worker, this);
        return worker;
    }
    void onDisconnected(Worker* worker) override {
        ++gRemoved;
        loop.removeWorkerLocked(worker);
        delete static_cast<Echo*>(worker);
    }
    void onMessage(Message) override { ++gDelivered; }
    void connect(Socket& client) {
        expect(client.connect("127.0.0.1", tcp.socket().getHostPort()), "no connection");
    }

    const int id;
    Connector& loop;
    ListenerDevice tcp{0, "127.0.0.1"};
    Worker listening{&tcp, nullptr};
};

void comeAndGo(Service& service) {
    for (; !gEnds; ++gServed) {
        Socket client(Socket::TCP);
        service.connect(client);
        std::string sent(static_cast<size_t>(1 + std::rand() % 100000), ' '), came;
        for (char& byte : sent) byte = static_cast<char>(std::rand());
        int got = client.send(sent.data(), static_cast<int>(sent.size()));
        char buffer[4096];
        while (came.size() < sent.size() && got > 0) {
            got = client.recv(buffer, sizeof buffer, kPatienceMs);
            came.append(buffer, static_cast<size_t>(std::max(got, 0)));
        }
        expect(came == sent, "bytes are missing, or wrong");
    }
}

// Sends and never reads, until the service takes it for one that does not.
void flood(Service& service) {
    const std::string bytes(65536, 'x');
    for (; !gEnds; ++gFlooded, sleepMs(20)) {
        Socket client(Socket::TCP);
        service.connect(client);
        while (client.send(bytes.data(), 65536) > 0) continue;
    }
}

struct Beat : Timer {
    bool onTimer(void*, int times) override { return ++gFired, times < 3; }
    void onTimerRemoved() override { ++gUnset, delete this; }
};

// Uses what any thread may use.
void useFromOutside(Service& service) {
    const std::string path = "@soak." + std::to_string(service.id);
    UnixSocket listener(UnixSocket::STREAM);
    expect(listener.bind(path) && listener.listen(), "no listener");
    for (int timer = 0; !gEnds; sleepMs(2)) {
        if (timer % 2 != 0) service.loop.removeTimer(timer);
        timer = service.loop.addTimer(new Beat, 1 + std::rand() % 5, nullptr);
        service.loop.resetTimer(timer);
        service.sendMessageDelayed(Message::obtain(), ++gSet % 3);
        ++gPosted;
        UnixSocket client(UnixSocket::STREAM);
        expect(client.connect(path), "no connection to the outside");
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
    expectSoon(gRemoved, gAdded, "an end is missing");
    expectSoon(gDelivered, gPosted, "a message is missing");
    expectSoon(gUnset, gSet, "a timer is missing");
    for (int i = 0; i < 2; ++i) loops[i].call([&] { services[i].reset(); });
}

}  // namespace

int main(int, char** arguments) {
    logging::setLogLevel(1);  // errors
    vyn::config::setAsyncWritting(true);
    soak(std::atoi(arguments[1]));
    std::cout << gAdded << " workers, " << gPosted << " messages, " << gFired << " times " << gSet
              << " timers, " << gServed << " clients served, " << gFlooded << " overflows, "
              << gFaults << " faults" << std::endl;
    expect(gAdded && gPosted && gFired && gServed && gFlooded, "something has not happened");
    return gFaults == 0 ? 0 : 1;
}
