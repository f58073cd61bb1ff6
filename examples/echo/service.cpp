// SPDX-License-Identifier: Apache-2.0

// echo [PORT [SILENCE_MS]]        sends each frame back; SIGINT or SIGTERM stops it
// echo client PORT TEXT...        sends each text as a frame and prints the answers
#include <vyn/command.h>
#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/logging.h>
#include <vyn/net_device.h>
#include <vyn/signal_device.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>

#include "client.h"
#include "frame.h"

struct Frame : vyn::Command {
    std::string payload;
    const char* getClassName() override { return "Frame"; }
    void dump(std::ostream& os) override { os << payload.size() << " bytes"; }
};

class FrameParser : public vyn::Parser {
  public:
    explicit FrameParser(vyn::Device& device) : mDevice(device) {}
    void createPacket(vyn::Command* command) override {
        const std::string packet = encodeFrame(static_cast<Frame*>(command)->payload);
        onPacketCreated(packet.data(), static_cast<int>(packet.size()));
    }
    int parse(const void* data, int len, bool) override {
        if (len > 0) mBytes.append(static_cast<const char*>(data), static_cast<size_t>(len));
        if (mBytes.size() < kLengthBytes) return -1;
        const size_t length = payloadLength(mBytes);
        if (length > kLongestPayload) {
            VYN_LOG_WARNING << "frame of " << length << " bytes, disconnect " << &mDevice;
            mDevice.disconnect();  // which deletes this parser
            return -1;
        }
        if (mBytes.size() < kLengthBytes + length) return -1;
        Frame frame;
        frame.payload = mBytes.substr(kLengthBytes, length);
        mBytes.erase(0, kLengthBytes + length);
        onCommandParsed(&frame);
        return 0;
    }

  private:
    vyn::Device& mDevice;
    std::string mBytes;
};

long gLongestSilenceMs = 60000;

struct Connection : vyn::Worker {
    explicit Connection(vyn::Device* device) : Worker(device, new FrameParser(*device)) {
        setEagerWriting(true);  // all frames of one read are answered with one write
    }
    ~Connection() override { delete getParser(), delete getDevice(); }
    bool hasRemoteTimedout(long silenceMs) override { return silenceMs > gLongestSilenceMs; }
};

class EchoService : public vyn::Handler {
  public:
    using Handler::Handler;
    void onNewConnection(vyn::Worker*, int, void* data) override {
        const auto* accepted = static_cast<const vyn::Socket*>(data);
        if (!accepted->isValid()) return;
        auto connection = std::make_unique<Connection>(new vyn::NetDevice(accepted));
        mLoop.addWorkerLocked(connection.get(), this);
        mConnections[connection.get()] = std::move(connection);
    }
    void onCommand(vyn::Worker* worker, vyn::Command* frame) override { worker->write(frame); }
    void onHeartbitTimeout(vyn::Worker* worker) override {
        VYN_LOG_WARNING << "silent for too long, disconnect " << worker;
        worker->getDevice()->disconnect();
    }
    void onDisconnected(vyn::Worker* worker) override {
        mLoop.removeWorkerLocked(worker);
        mConnections.erase(worker);
    }

  private:
    std::map<vyn::Worker*, std::unique_ptr<Connection>> mConnections;
};

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "client") return runClient(argc - 2, argv + 2);

    const int port = argc > 1 ? std::atoi(argv[1]) : 7007;
    if (argc > 2) gLongestSilenceMs = std::atol(argv[2]);
    vyn::config::setAsyncWritting(true);  // a peer that does not read holds up nobody else
    vyn::Connector connector;
    EchoService service(connector);
    vyn::ListenerDevice listener;
    if (!listener.listen(port, "127.0.0.1")) return 1;
    vyn::Worker listening(&listener, nullptr);
    connector.addWorkerLocked(&listening, &service);
    vyn::SignalDevice stopSignals({SIGINT, SIGTERM},
                                  [&](const auto&) { connector.requestStop(1000); });
    vyn::Worker stopping(&stopSignals, nullptr);
    connector.addWorkerLocked(&stopping, &service);
    std::cout << "listening on port " << listener.socket().getHostPort() << std::endl;
    connector.run();
    std::cout << "stopped" << std::endl;
}
