#pragma once

#include <sys/signalfd.h>
#include <unistd.h>
#include <vyn/console_device.h>
#include <vyn/helper.h>
#include <vyn/network.h>
#include <vyn/rtmgr_device.h>

#include <csignal>
#include <functional>
#include <sstream>
#include <utility>
#include <vector>

#include "handler.h"
#include "line_parser.h"

// What comes from the machine and its operator: signals, network changes and the console.

// Stops the loop on SIGINT and SIGTERM. Made before other threads are, so that these signals
// interrupt none of them.
class StopSignals : public Handler {
  public:
    explicit StopSignals(vyn::Connector& loop) : Handler(loop), mDevice(loop) {
        mLoop.addWorkerLocked(&mWorker, this);
    }
    ~StopSignals() override { mLoop.removeWorkerLocked(&mWorker); }

  private:
    struct SignalDevice : vyn::Device {
        explicit SignalDevice(vyn::Connector& itsLoop) : loop(itsLoop) {
            sigset_t signals;
            sigemptyset(&signals);
            for (const int signal : {SIGINT, SIGTERM}) sigaddset(&signals, signal);
            pthread_sigmask(SIG_BLOCK, &signals, nullptr);
            fd = signalfd(-1, &signals, SFD_CLOEXEC);
        }
        ~SignalDevice() override { close(fd); }
        int getFd() override { return fd; }
        void onDataArrival(int) override { loop.stop(); }
        int write(const void*, int len) override { return len; }

        vyn::Connector& loop;
        int fd;
    };

    SignalDevice mDevice;
    vyn::Worker mWorker{&mDevice, nullptr};
};

// Reports the network interfaces that are up with their IPv4 addresses, as "lo 127.0.0.1, eth0
// 192.0.2.7": at first, and whenever that changes.
class RouteWatch : public Handler {
  public:
    using Report = std::function<void(const std::string& routes)>;

    RouteWatch(vyn::Connector& loop, Report report) : Handler(loop), mReport(std::move(report)) {
        mLoop.addWorkerLocked(&mWorker, this);
        reportChange();
    }
    ~RouteWatch() override { mLoop.removeWorkerLocked(&mWorker); }
    void onNetworkChanged(vyn::Worker*) override { reportChange(); }

  private:
    void reportChange() {
        std::string routes = describe();
        if (routes == mRoutes) return;  // the kernel has notices about much else
        mRoutes = std::move(routes);
        VYN_LOG_INFO << "network: " << mRoutes;
        mReport(mRoutes);
    }
    static std::string describe() {
        std::vector<std::string> routes;
        for (const auto& interface : vyn::helper::getNetworkDevices()) {
            if (!interface.up) continue;
            routes.push_back(interface.name);
            for (const auto& address : interface.ipv4) routes.back() += " " + address.ip;
        }
        return routes.empty() ? "none" : vyn::helper::implode(routes, ", ").substr(0, 512);
    }

    const Report mReport;
    std::string mRoutes;
    vyn::RtmgrDevice mDevice;
    vyn::Worker mWorker{&mDevice, nullptr};
};

// The operator's commands on standard input, "status" and "quit". When the input ends, the service
// goes on.
class Console : public Handler {
  public:
    // Writes at once: the loop could only wait for the input to be writable, which a pipe never is.
    explicit Console(vyn::Connector& loop) : Handler(loop) {
        mWorker.setSelfCallFlag(true);
        mLoop.addWorkerLocked(&mWorker, this);
    }
    ~Console() override { mLoop.removeWorkerLocked(&mWorker); }

    void onCommand(vyn::Worker*, vyn::Command* command) override {
        const std::string& word = static_cast<Line*>(command)->text;
        std::ostringstream answer;
        if (word == "status") {
            answer << mLoop;
        } else {
            answer << (word == "quit" ? "good bye" : "status or quit?");
        }
        Line line(answer.str());
        mWorker.write(&line);
        if (word == "quit") mLoop.stop();
    }
    void onDisconnected(vyn::Worker* worker) override { mLoop.removeWorkerLocked(worker); }

  private:
    vyn::ConsoleDevice mDevice;
    LineParser mParser;
    vyn::Worker mWorker{&mDevice, &mParser};
};
