#pragma once

#include <vyn/connector.h>
#include <vyn/message.h>
#include <vyn/worker.h>

#include <functional>
#include <string>

namespace vyn::testing {

// An executor whose callbacks are functions that a test fills in; the others do nothing.
class RecordingExecutor : public Connector::Executor {
  public:
    std::function<void(Worker*, Command*)> command;
    std::function<void(Worker*, int, void*)> newConnection;
    std::function<void(Worker*)> disconnected;
    std::function<void(Worker*)> heartbitTimeout;
    std::function<void(Worker*)> networkChanged;
    std::function<void(Worker*, const std::string&, int)> fileChanged;
    std::function<void(Worker*)> authenticated;
    std::function<void(Worker*)> authenticationFailed;
    std::function<void(Message)> message;

    void onCommand(Worker* worker, Command* cmd) override { call(command, worker, cmd); }
    void onNewConnection(Worker* worker, int fd, void* data) override {
        call(newConnection, worker, fd, data);
    }
    void onDisconnected(Worker* worker) override { call(disconnected, worker); }
    void onHeartbitTimeout(Worker* worker) override { call(heartbitTimeout, worker); }
    void onNetworkChanged(Worker* worker) override { call(networkChanged, worker); }
    void onFileChanged(Worker* worker, const std::string& path, int mask) override {
        call(fileChanged, worker, path, mask);
    }
    void onAuthenticated(Worker* worker) override { call(authenticated, worker); }
    void onAuthenticationFailed(Worker* worker) override { call(authenticationFailed, worker); }
    void onMessage(Message posted) override { call(message, posted); }

  private:
    template <typename Function, typename... Arguments>
    static void call(const Function& function, Arguments&&... arguments) {
        if (function) function(std::forward<Arguments>(arguments)...);
    }
};

}  // namespace vyn::testing
