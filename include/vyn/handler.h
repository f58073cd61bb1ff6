// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include <vyn/connector.h>
#include <vyn/export.h>
#include <vyn/message.h>

// The callbacks are about workers.
#include <vyn/worker.h>  // IWYU pragma: export

namespace vyn {

// An executor that does nothing, to derive from: a handler overrides the callbacks that it has
// something to do in. It is attached to its loop for its lifetime, so it can post messages to
// itself at once.
//
//     struct Service : vyn::Handler {
//         using Handler::Handler;
//         void onDisconnected(vyn::Worker* worker) override { ... }
//     };
//
// Made and destroyed on the loop's thread, or before run() and after it; what Connector::Executor
// says of the callbacks holds here.
class VYN_API Handler : public Connector::Executor {
  public:
    // Not owned; must outlive the handler.
    explicit Handler(Connector& loop);
    // Drops its messages that are still waiting.
    ~Handler() override;
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    void onCommand(Worker* worker, Command* command) override;
    void onNewConnection(Worker* worker, int fd, void* data) override;
    void onDisconnected(Worker* worker) override;
    void onHeartbitTimeout(Worker* worker) override;
    void onNetworkChanged(Worker* worker) override;
    void onFileChanged(Worker* worker, const std::string& path, int mask) override;
    void onAuthenticated(Worker* worker) override;
    void onAuthenticationFailed(Worker* worker) override;
    void onMessage(Message message) override;

  protected:
    // The loop that it was made with.
    Connector& mLoop;
};

}  // namespace vyn
