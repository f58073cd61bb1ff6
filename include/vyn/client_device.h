// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>
#include <string>

#include <vyn/net_device.h>
#include <vyn/unix_device.h>

namespace vyn {

class ClientLink;

// How a client connects, and what it does when that fails or the connection is lost.
struct ClientOptions {
    // How long an attempt may take, in milliseconds; below 1 leaves the limit to the kernel.
    int timeoutMs = 5000;
    // Whether to try again after a failed attempt, and to connect anew after a lost connection.
    bool reconnect = false;
    // How long to wait before that, in milliseconds: `firstDelayMs` at first, after each failed
    // attempt twice as long, up to `longestDelayMs`. The actual delay is between half of that and
    // all of it, by chance, so that the clients of a server that comes back do not come all at
    // once.
    int firstDelayMs = 100;
    int longestDelayMs = 30000;
    // After how many failed attempts in a row to give up; 0 for never.
    int mostAttempts = 0;
};

// A failed attempt to connect.
struct ConnectFailure {
    int error;      // the errno; ETIMEDOUT when the time ran out
    bool timedOut;  // it was the time of ClientOptions that ran out
    int attempt;    // how many have failed in a row, this one included
    int retryMs;    // the next one follows so many milliseconds later; -1 when there is none
};

// What a client reports. The functions are called on the loop's thread, where everything is
// allowed; they may delete the device. Either may be null.
struct ClientFunctions {
    std::function<void()> connected;                    // there is a connection now
    std::function<void(const ConnectFailure&)> failed;  // an attempt has failed
};

// The client's end of a TCP connection, which neither connecting nor waiting for another attempt
// holds up the loop for. The worker stays the same over all connections:
//
//     vyn::ClientDevice device("192.0.2.7", 7000, {}, {[&] { worker.write(&hello); }, {}});
//     vyn::Worker worker(&device, &parser);
//     connector.addWorkerLocked(&worker, &executor);
//     device.connect();
//
// What is queued before there is a connection waits for it, at most 100 writes as ever; writing at
// once, without asynchronous writing, fails.
//
// Executor::onDisconnected() follows when the connection is lost, when the client gives up, and
// when too much was queued. Leave the worker alone there if willReconnect(): when the callback
// returns, what it still had queued is dropped, it is valid again, and the next attempt follows
// after the delay. In `connected` the parser had better forget half a packet of the last connection
// (LineParser::clear()), and an authenticator that the peer has passed. Without willReconnect()
// remove the worker, or connect() it anew, there or later.
//
// disconnect() and Worker::disconnectWhenWritten() end it for good, reconnect() does not: that is
// for onHeartbitTimeout(). While there is no connection the worker's heartbeat rests, and a pause
// of reading is put off.
class VYN_API ClientDevice : public NetDevice {
  public:
    // `ip` is numeric; see helper::resolve() for names.
    ClientDevice(const std::string& ip, int port, const ClientOptions& options = {},
                 const ClientFunctions& functions = {});
    ~ClientDevice() override;

    // Begins the first attempt, once the worker is made, or another one when all has ended: what
    // was queued is dropped then, and the worker is valid again. Nothing is reported before this
    // returns. False, with errno, when it is connected or at it already, or the process is out of
    // descriptors.
    bool connect();
    // Where the next attempt goes; for a `failed` that has looked the name up again.
    void setAddress(const std::string& ip, int port);
    void setAddress(const SocketAddress& address);
    [[nodiscard]] bool isConnected() const;
    // Whether it is connecting, waits to, or will once Executor::onDisconnected() returns.
    [[nodiscard]] bool willReconnect() const;
    // Drops the connection, if there is one, as if it were lost.
    void reconnect();

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    int write(const void* data, int len) override;
    int getFd() override;
    void disconnect() override;

  private:
    std::string mIp;
    int mPort;
    const std::unique_ptr<ClientLink> mLink;
};

// The same over a Unix socket. EAGAIN is the error of a server whose backlog is full.
class VYN_API UnixClientDevice : public UnixDevice {
  public:
    // To the server at this path or abstract name, as UnixDevice takes them.
    explicit UnixClientDevice(const std::string& addr, const ClientOptions& options = {},
                              const ClientFunctions& functions = {});
    ~UnixClientDevice() override;

    // As those of ClientDevice.
    bool connect();
    [[nodiscard]] bool isConnected() const;
    [[nodiscard]] bool willReconnect() const;
    void reconnect();

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    int write(const void* data, int len) override;
    int getFd() override;
    void disconnect() override;

  private:
    const std::string mAddress;
    const std::unique_ptr<ClientLink> mLink;
};

}  // namespace vyn
