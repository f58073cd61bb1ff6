#pragma once

#include <vyn/worker.h>

// An executor of one loop, to derive from: overrides what it handles. The loop outlives it.
struct Handler : vyn::Connector::Executor {
    explicit Handler(vyn::Connector& loop) : mLoop(loop) { loop.attach(this); }
    ~Handler() override { mLoop.detach(this); }

    void onCommand(vyn::Worker*, vyn::Command*) override {}
    void onNewConnection(vyn::Worker*, int, void*) override {}
    void onDisconnected(vyn::Worker*) override {}
    void onHeartbitTimeout(vyn::Worker*) override {}
    void onNetworkChanged(vyn::Worker*) override {}
    void onFileChanged(vyn::Worker*, const std::string&, int) override {}
    void onAuthenticated(vyn::Worker*) override {}
    void onAuthenticationFailed(vyn::Worker*) override {}
    void onMessage(vyn::Message) override {}

  protected:
    vyn::Connector& mLoop;
};
