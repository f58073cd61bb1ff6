// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/client_device.h>

#include <functional>
#include <random>

namespace vyn {

class SocketBase;
class Worker;

// How a client device comes to its connections: when to try, and what is watched meanwhile.
//
// The loop watches sockets for reading, and a socket that connects becomes writable. So until there
// is a connection the device names an epoll instance as its descriptor, which is readable when the
// socket is writable or when a timer, for the end of the attempt or for the next one, has gone off.
class ClientLink {
  public:
    // What the device does.
    struct Steps {
        std::function<bool()> begin;  // opens a socket and begins to connect; false with errno
        std::function<Worker*()> worker;
    };

    ClientLink(Device& device, SocketBase& socket, const ClientOptions& options,
               const ClientFunctions& functions, Steps steps);
    ~ClientLink();
    ClientLink(const ClientLink&) = delete;
    ClientLink& operator=(const ClientLink&) = delete;

    bool start();
    // Ends all attempts.
    void stop();
    bool isConnected() const { return mState == State::kConnected; }
    bool willReconnect() const;
    // What the loop watches: -1 when nothing is under way.
    int fd() const;
    // That is readable. The device may be gone afterwards.
    void onReadable();

    // Whether `worker`, whose executor was told of its end, goes on; to be called then for each
    // worker. `device` is its device, which may be gone, and does not have to be a client.
    static void onEndReported(Device* device, Worker* worker);
    // False while there is no client device in the process.
    static bool exists();

  private:
    enum class State { kIdle, kConnecting, kWaiting, kConnected };

    bool isUnderWay() const { return mState == State::kConnecting || mState == State::kWaiting; }
    void beginAttempt();
    void onAttemptOver(bool timedOut);
    int resultOfAttempt() const;
    bool isConnectedToItself() const;
    void succeed();
    void fail(int error, bool timedOut);
    void onLost(Worker* worker);
    static void renew(Worker* worker);
    void setConnecting(bool connecting);
    void waitForNextAttempt(int ms);
    int nextDelayMs();
    bool open();
    void close();
    void setTimer(int64_t ns);

    Device& mDevice;
    SocketBase& mSocket;
    const ClientOptions mOptions;
    const ClientFunctions mFunctions;
    const Steps mSteps;
    State mState = State::kIdle;
    int mFailures = 0;    // in a row
    int mBeginError = 0;  // of an attempt that failed at once, to be reported by the loop
    int mEpoll = -1;
    int mTimer = -1;
    std::minstd_rand mRandom;
};

}  // namespace vyn
