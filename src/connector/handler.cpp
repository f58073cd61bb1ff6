// SPDX-License-Identifier: Apache-2.0

#include <vyn/handler.h>

namespace vyn {

Handler::Handler(Connector& loop) : mLoop(loop) { loop.attach(this); }

Handler::~Handler() {
    mLoop.detach(this);
    mLoop.removeMessages(this);
}

void Handler::onCommand(Worker*, Command*) {}

void Handler::onNewConnection(Worker*, int, void*) {}

void Handler::onDisconnected(Worker*) {}

void Handler::onHeartbitTimeout(Worker*) {}

void Handler::onNetworkChanged(Worker*) {}

void Handler::onFileChanged(Worker*, const std::string&, int) {}

void Handler::onAuthenticated(Worker*) {}

void Handler::onAuthenticationFailed(Worker*) {}

void Handler::onMessage(Message) {}

}  // namespace vyn
