// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <unistd.h>
#include <vyn/authenticator.h>
#include <vyn/unix_socket.h>
#include <vyn/worker.h>

#include "line_parser.h"
#include "settings.h"

// Lets a peer pass whose first line is "AUTH " and the token, which travels as plain text.
class TokenAuthenticator : public vyn::Authenticator {
  public:
    explicit TokenAuthenticator(const Settings& settings) : mSettings(settings) {}
    bool pass() override { return mHasPassed; }
    void onData(const void* data, int len) override {
        mBuffer.append(data, len);
        std::string line;
        const LineBuffer::Result result = mBuffer.next(line);
        if (result == LineBuffer::kIncomplete) return;
        const std::string& token = mSettings.token;
        mHasPassed = result == LineBuffer::kLine && !token.empty() && line == "AUTH " + token;
        if (!mHasPassed) return worker()->onAuthenticationFailed();
        const std::string rest = mBuffer.takeRest();
        vyn::Worker* const peer = worker();
        peer->onAuthenticated();
        // What came along with the token is for the parser, to which the worker gives it now.
        if (!rest.empty()) peer->onData(rest.data(), static_cast<int>(rest.size()));
    }

  private:
    const Settings& mSettings;
    LineBuffer mBuffer;
    bool mHasPassed = false;
};

// Lets processes of this process's user and of root pass, as soon as they are connected.
class CredentialsAuthenticator : public vyn::Authenticator {
  public:
    explicit CredentialsAuthenticator(const vyn::UnixSocket& socket) {
        const auto peer = socket.peerCredentials();
        mHasPassed = peer && (peer->uid == 0 || peer->uid == geteuid());
    }
    bool pass() override { return mHasPassed; }
    void require() override {
        mHasPassed ? worker()->onAuthenticated() : worker()->onAuthenticationFailed();
    }

  private:
    bool mHasPassed;
};
