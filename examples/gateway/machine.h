// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <unistd.h>
#include <vyn/console_device.h>
#include <vyn/handler.h>
#include <vyn/helper.h>
#include <vyn/network.h>
#include <vyn/rtmgr_device.h>
#include <vyn/signal_device.h>

#include <csignal>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "line_parser.h"

// What comes from the machine and its operator: signals, network changes and the console.

// Stops the loop on SIGTERM and SIGINT, once the peers have got what was written to them. Made
// before threads are, so that these signals interrupt none of them.
class StopSignals : public vyn::Handler {
  public:
    explicit StopSignals(vyn::Connector& loop)
        : Handler(loop),
          mDevice({SIGTERM, SIGINT}, [&loop](const auto&) { loop.requestStop(1000); }) {
        if (mDevice.getFd() < 0) throw std::runtime_error("it could not be stopped");
        mLoop.addWorkerLocked(&mWorker, this);
    }
    ~StopSignals() override { mLoop.removeWorkerLocked(&mWorker); }
    void onDisconnected(vyn::Worker*) override { mLoop.stop(); }  // one came and can not be read

  private:
    vyn::SignalDevice mDevice;
    vyn::Worker mWorker{&mDevice, nullptr};
};

// Reports the network interfaces that are up with their IPv4 addresses, as "lo 127.0.0.1, eth0
// 192.0.2.7": at first, and whenever that changes.
class RouteWatch : public vyn::Handler {
  public:
    using Report = std::function<void(const std::string& routes)>;

    RouteWatch(vyn::Connector& loop, Report report) : Handler(loop), mReport(std::move(report)) {
        mLoop.addWorkerLocked(&mWorker, this);
        onNetworkChanged(&mWorker);
    }
    ~RouteWatch() override { mLoop.removeWorkerLocked(&mWorker); }
    void onNetworkChanged(vyn::Worker*) override {
        std::vector<std::string> routes;
        for (const auto& interface : vyn::helper::getNetworkDevices()) {
            if (!interface.up) continue;
            routes.push_back(interface.name);
            for (const auto& address : interface.ipv4) routes.back() += " " + address.ip;
        }
        const std::string text = vyn::helper::implode(routes, ", ").substr(0, 512);
        if (std::exchange(mRoutes, text) == text) return;  // the kernel has notices about much else
        VYN_LOG_INFO << "network: " << text;
        mReport(text);
    }

  private:
    const Report mReport;
    std::string mRoutes;
    vyn::RtmgrDevice mDevice;
    vyn::Worker mWorker{&mDevice, nullptr};
};

// The operator's commands on standard input, "status" and "quit". When the input ends, the service
// goes on.
class Console : public vyn::Handler {
  public:
    explicit Console(vyn::Connector& loop) : Handler(loop) {
        mLoop.addWorkerLocked(&mWorker, this);
    }
    ~Console() override { mLoop.removeWorkerLocked(&mWorker); }
    void onCommand(vyn::Worker*, vyn::Command* command) override {
        const std::string& word = static_cast<Line*>(command)->text;
        if (word == "quit") return void(kill(getpid(), SIGTERM));
        std::ostringstream answer;
        word == "status" ? answer << mLoop : answer << "status or quit?";
        Line line(answer.str());
        mWorker.write(&line);
    }
    void onDisconnected(vyn::Worker* worker) override { mLoop.removeWorkerLocked(worker); }

  private:
    vyn::ConsoleDevice mDevice;
    LineParser mParser;
    vyn::Worker mWorker{&mDevice, &mParser};
};
