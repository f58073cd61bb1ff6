// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/connector.h>
#include <vyn/framing.h>
#include <vyn/message.h>

#include <functional>
#include <string>

// What an application gives to a worker, for tests: an executor. The protocol of the tests is
// lines.
namespace vyn::testing {

// A callback that does nothing until a test gives it something to do.
template <typename... Arguments>
struct Hook : std::function<void(Arguments...)> {
    Hook() : std::function<void(Arguments...)>([](Arguments...) {}) {}
    using std::function<void(Arguments...)>::operator=;
};

// An executor whose callbacks are functions that a test fills in.
class RecordingExecutor : public Connector::Executor {
  public:
    Hook<Worker*, Command*> command;
    Hook<Worker*, int, void*> newConnection;
    Hook<Worker*> disconnected, heartbitTimeout, networkChanged;
    Hook<Worker*, const std::string&, int> fileChanged;
    Hook<Worker*> authenticated, authenticationFailed;
    Hook<Message> message;

    void onCommand(Worker* worker, Command* cmd) override { command(worker, cmd); }
    void onNewConnection(Worker* worker, int fd, void* data) override {
        newConnection(worker, fd, data);
    }
    void onDisconnected(Worker* worker) override { disconnected(worker); }
    void onHeartbitTimeout(Worker* worker) override { heartbitTimeout(worker); }
    void onNetworkChanged(Worker* worker) override { networkChanged(worker); }
    void onFileChanged(Worker* worker, const std::string& path, int mask) override {
        fileChanged(worker, path, mask);
    }
    void onAuthenticated(Worker* worker) override { authenticated(worker); }
    void onAuthenticationFailed(Worker* worker) override { authenticationFailed(worker); }
    void onMessage(Message posted) override { message(posted); }
};

}  // namespace vyn::testing
