#pragma once

#include <vyn/connector.h>

namespace bench {

// An executor that ignores everything, to derive from.
class Executor : public vyn::Connector::Executor {
  public:
    void onCommand(vyn::Worker*, vyn::Command*) override {}
    void onNewConnection(vyn::Worker*, int, void*) override {}
    void onDisconnected(vyn::Worker*) override {}
    void onHeartbitTimeout(vyn::Worker*) override {}
    void onNetworkChanged(vyn::Worker*) override {}
    void onFileChanged(vyn::Worker*, const std::string&, int) override {}
    void onAuthenticated(vyn::Worker*) override {}
    void onAuthenticationFailed(vyn::Worker*) override {}
    void onMessage(vyn::Message) override {}
};

}  // namespace bench
