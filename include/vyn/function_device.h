// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include <vyn/connector.h>
#include <vyn/device.h>
#include <vyn/lock.h>
#include <vyn/message.h>

namespace vyn {

// One end of a connection inside the process. Two function devices, usually on the loops of two
// threads, are paired by name and carry bytes to each other as messages, so that two components
// talk through the same workers, parsers and executors as over a socket:
//
//     FunctionDevice listening(&executorA);    // one side, with a worker on it
//     listening.listen("recorder");
//
//     FunctionDevice connecting(&executorB);   // the other side, with a worker on it
//     connecting.connect("recorder");
//
//     void onNewConnection(Worker*, int fd, void* data) override {   // of executorA
//         auto* device = new FunctionDevice(this);
//         auto* worker = new Worker(device, parser);
//         device->accept(static_cast<FunctionDevice*>(data));
//         ...
//     }
//
// Writing never blocks and is not bounded: what the other side has not read yet waits in its
// connector, one message for each write, and arrives there as one onData() of the same bytes.
//
// Nobody is told when a pairing ends. The other side finds out when its next write is fatal; who
// needs an event calls the worker's onDisconnected().
//
// Any thread may call write(), disconnect() and what makes a pairing, also while others do. What
// the application sees to:
// - a device is destroyed on the thread of its executor's loop, or when that loop has ended: only
//   then can no delivery to it be under way. Its peer becomes unpaired, and bytes still on their
//   way to it are dropped;
// - a device whose worker is deleted goes with it, or is given null by attach(): removing a worker
//   from its connector does not stop what is on its way to the device;
// - the executor and its connector stay until the device is disconnected or destroyed. After that
//   no write of the peer uses them;
// - connect() calls the listening side on the thread of the caller, so the listening device and its
//   worker must stay meanwhile.
class VYN_API FunctionDevice : public Device, public Message::Callback {
  public:
    // The descriptor that onNewConnection() gets for a function device.
    static constexpr int kConnectionFd = -100;

    // Messages for this device are delivered by the loop of the executor's connector. Not owned and
    // not null.
    explicit FunctionDevice(Connector::Executor* executor);
    // Disconnects.
    ~FunctionDevice() override;
    FunctionDevice(const FunctionDevice&) = delete;
    FunctionDevice& operator=(const FunctionDevice&) = delete;

    // Makes the device known under a name, in the place of a device that was before. It may have
    // several names.
    void listen(const std::string& name);
    // Announces this device to the one that listens under the name, whose executor gets
    // onNewConnection() with kConnectionFd and this device before connect() returns. The pairing is
    // up to accept(). False when nobody listens; connecting a paired device is fatal.
    bool connect(const std::string& name);
    // Pairs this device with the one that connects. Always true.
    bool accept(FunctionDevice* peer);

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    // Sends a copy of the bytes. Always returns `len`; a negative one sends nothing. Fatal while
    // unpaired.
    int write(const void* data, int len) override;
    int getFd() override;
    // Gives up the names and unpairs both ends, silently. What is on its way still arrives.
    void disconnect() override;
    // The name of the connection, followed by [L] when listening, [C] when connecting, [C][A] when
    // accepting.
    void dump(std::ostream& os) override;

    // Takes what the peer wrote: `obj` is the array, which is deleted here, and `arg1` its length.
    // Messages of other codes are ignored.
    void onMessage(Message msg) override;

  private:
    friend class FunctionRegistry;

    FunctionDevice* setPeer(FunctionDevice* peer);
    void setName(const std::string& name);
    std::string name();
    bool isPaired();
    bool sendToPeer(const void* data, int len);
    void post(const void* data, int len);

    // The peer is alive for as long as it is set here, and its executor with it.
    FunctionDevice* mPeer VYN_GUARDED_BY(mLock) = nullptr;
    Connector::Executor* const mExecutor;
    std::string mName VYN_GUARDED_BY(mLock);
    const uint64_t mMailbox;
    Lock mLock;
};

}  // namespace vyn
