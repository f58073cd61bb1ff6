// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/command.h>
#include <vyn/connector.h>
#include <vyn/message.h>
#include <vyn/parser.h>

#include <functional>
#include <string>

// What an application gives to a worker, for tests: a parser and an executor.
namespace vyn::testing {

// The protocol of the tests: lines of text, each a command.
class Line : public Command {
  public:
    explicit Line(std::string content) : text(std::move(content)) {}

    std::string text;

    const char* getClassName() override { return "Line"; }
    void dump(std::ostream& os) override { os << text; }
};

// Reports one line a call; the command lives for the report only.
class LineParser : public Parser {
  public:
    void createPacket(Command* cmd) override {
        const std::string packet = static_cast<Line*>(cmd)->text + "\n";
        onPacketCreated(packet.data(), static_cast<int>(packet.size()));
    }

    int parse(const void* data, int len, bool) override {
        if (len > 0) mBuffered.append(static_cast<const char*>(data), static_cast<size_t>(len));
        const size_t end = mBuffered.find('\n');
        if (end == std::string::npos) return -1;
        Line line(mBuffered.substr(0, end));
        mBuffered.erase(0, end + 1);
        onCommandParsed(&line);
        return 0;
    }

  private:
    std::string mBuffered;
};

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
