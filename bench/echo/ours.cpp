// SPDX-License-Identifier: Apache-2.0

#include <vyn/command.h>
#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/logging.h>
#include <vyn/net_device.h>
#include <vyn/unix_device.h>
#include <vyn/worker.h>

#include "echo/server.h"

namespace echo {

namespace {

// Whatever one read brought.
struct Chunk : vyn::Command {
    Chunk(const void* bytes, int count) : data(bytes), size(count) {}
    const char* getClassName() override { return "Chunk"; }
    void dump(std::ostream& os) override { os << size << " bytes"; }
    const void* data;
    int size;
};

struct ChunkParser : vyn::Parser {
    void createPacket(vyn::Command* command) override {
        const auto* chunk = static_cast<Chunk*>(command);
        onPacketCreated(chunk->data, chunk->size);
    }
    int parse(const void* data, int len, bool) override {
        if (len < 1) return -1;
        Chunk chunk(data, len);
        onCommandParsed(&chunk);
        return -1;  // what came is reported
    }
};

struct Connection : vyn::Worker {
    explicit Connection(vyn::Device* device) : Worker(device, new ChunkParser) {}
    ~Connection() override { delete getParser(), delete getDevice(); }
};

template <class StreamSocket, class StreamDevice>
class Service : public vyn::Handler {
  public:
    using Handler::Handler;
    void serve(vyn::Device& listener) {
        vyn::Worker listening(&listener, nullptr);
        mLoop.addWorkerLocked(&listening, this);
        mLoop.run();
    }
    void onNewConnection(vyn::Worker*, int, void* data) override {
        const auto* accepted = static_cast<const StreamSocket*>(data);
        if (accepted->isValid()) {
            mLoop.addWorkerLocked(new Connection(new StreamDevice(accepted)), this);
        }
    }
    void onCommand(vyn::Worker* worker, vyn::Command* chunk) override { worker->write(chunk); }
    void onDisconnected(vyn::Worker* worker) override {
        mLoop.removeWorkerLocked(worker);
        delete worker;
    }
};

void serve(const Place& place) {
    logging::setLogLevel(logging::kLevelWarning);
    vyn::Connector loop;
    if (place.isUnix()) {
        vyn::UnixListenerDevice listener(place.path);
        announce(place, 0);
        Service<vyn::UnixSocket, vyn::UnixDevice>(loop).serve(listener);
    } else {
        vyn::ListenerDevice listener(0, "127.0.0.1");
        announce(place, listener.socket().getHostPort());
        Service<vyn::Socket, vyn::NetDevice>(loop).serve(listener);
    }
}

}  // namespace

void serveOursDirect(const Place& place) { serve(place); }

void serveOursAsync(const Place& place) {
    vyn::config::setAsyncWritting(true);
    serve(place);
}

}  // namespace echo
