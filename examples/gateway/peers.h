// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/handler.h>
#include <vyn/helper.h>
#include <vyn/net_device.h>
#include <vyn/unix_device.h>

#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "authenticators.h"

// A peer goes by its id: what is sent to one that has gone reaches nobody.
using PeerId = int;

// One peer, over TCP or the Unix socket.
struct Connection : vyn::Worker {
    Connection(std::unique_ptr<vyn::Device> itsDevice, std::unique_ptr<vyn::Authenticator> auth,
               PeerId itsId, const Settings& itsSettings)
        : Worker(itsDevice.get(), &parser),
          id(itsId),
          settings(itsSettings),
          device(std::move(itsDevice)),
          authenticator(std::move(auth)) {
        attach(authenticator.get());
        setEagerWriting(true);  // all lines for one read's commands leave together
    }
    const char* getClassName() override { return "Connection"; }
    bool hasRemoteTimedout(long silenceMs) override {
        const long connectedMs = vyn::helper::tickDifference(vyn::helper::mtick(), connectedTick);
        if (!hasAuthenticated()) return settings.loginMs > 0 && connectedMs > settings.loginMs;
        return settings.silenceMs > 0 && silenceMs > settings.silenceMs;
    }

    const PeerId id;
    const Settings& settings;
    const long connectedTick = vyn::helper::mtick();
    LineParser parser;
    const std::unique_ptr<vyn::Device> device;
    const std::unique_ptr<vyn::Authenticator> authenticator;
};

// Everybody who talks to the gateway. Accepts and authenticates peers; drops those that are denied,
// take too long to authenticate, send what is no line, or are silent for too long.
class Peers : public vyn::Handler {
  public:
    // A port or a socket that is not to be had ends the process.
    Peers(vyn::Connector& loop, const Settings& settings, int port, const std::string& socketPath)
        : Handler(loop),
          mSettings(settings),
          mTcpDevice(port, "127.0.0.1"),
          mUnixDevice(socketPath) {
        for (vyn::Worker* listener : {&mTcp, &mUnix}) mLoop.addWorkerLocked(listener, this);
    }
    ~Peers() override {
        for (vyn::Worker* listener : {&mTcp, &mUnix}) mLoop.removeWorkerLocked(listener);
        for (const auto& [id, peer] : mConnections) mLoop.removeWorkerLocked(peer.get());
    }

    // What becomes of lines, and of the peers that have gone.
    std::function<void(PeerId, const std::string& line)> onLine;
    std::function<void(PeerId)> onGone;

    [[nodiscard]] int port() { return mTcpDevice.socket().getHostPort(); }
    [[nodiscard]] int count() const { return static_cast<int>(mConnections.size()); }

    void send(PeerId id, const std::string& line) {
        const auto found = mConnections.find(id);
        if (found == mConnections.end()) return;
        const std::string bytes = line + '\n';
        found->second->writeRaw(bytes.data(), static_cast<int>(bytes.size()));
    }

    void onNewConnection(vyn::Worker* listening, int, void* data) override {
        if (listening == &mTcp) {
            accept<vyn::NetDevice, TokenAuthenticator>(static_cast<vyn::Socket*>(data), mSettings);
        } else {
            auto* socket = static_cast<vyn::UnixSocket*>(data);
            accept<vyn::UnixDevice, CredentialsAuthenticator>(socket, *socket);
        }
    }
    void onAuthenticated(vyn::Worker* peer) override {
        VYN_LOG_INFO << "welcome " << peer;
        send(static_cast<Connection*>(peer)->id, "WELCOME");
    }
    void onAuthenticationFailed(vyn::Worker* peer) override {
        VYN_LOG_WARNING << "denied, disconnect " << peer;
        peer->writeRaw("DENIED\n", 7);
        peer->disconnectWhenWritten(1000);
    }
    void onCommand(vyn::Worker* peer, vyn::Command* command) override {
        const auto* line = static_cast<Line*>(command);
        if (line->isMalformed) return drop(peer, "too long or no text");
        onLine(static_cast<Connection*>(peer)->id, line->text);
    }
    void onHeartbitTimeout(vyn::Worker* peer) override {
        drop(peer, peer->hasAuthenticated() ? "silent for too long" : "not authenticated in time");
    }
    void onDisconnected(vyn::Worker* peer) override {  // never a listener
        const PeerId id = static_cast<Connection*>(peer)->id;
        mLoop.removeWorkerLocked(peer);
        mConnections.erase(id);
        onGone(id);
    }

  private:
    template <class DeviceType, class AuthenticatorType, class SocketType, class Argument>
    void accept(const SocketType* socket, const Argument& argument) {
        if (!socket->isValid()) return;
        auto authenticator = std::make_unique<AuthenticatorType>(argument);
        std::unique_ptr<Connection>& peer = mConnections[++mLastId];
        peer = std::make_unique<Connection>(std::make_unique<DeviceType>(socket),
                                            std::move(authenticator), mLastId, mSettings);
        mLoop.addWorkerLocked(peer.get(), this);
        peer->requireAuth();
    }
    static void drop(vyn::Worker* peer, const char* reason) {
        VYN_LOG_WARNING << reason << ", disconnect " << peer;
        peer->getDevice()->disconnect();  // onDisconnected() follows
    }

    const Settings& mSettings;
    vyn::ListenerDevice mTcpDevice;
    vyn::Worker mTcp{&mTcpDevice, nullptr};
    vyn::UnixListenerDevice mUnixDevice;
    vyn::Worker mUnix{&mUnixDevice, nullptr};
    PeerId mLastId = 0;
    std::map<PeerId, std::unique_ptr<Connection>> mConnections;
};
