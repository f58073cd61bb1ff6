// SPDX-License-Identifier: Apache-2.0

#include "device/client_link.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <vyn/config.h>
#include <vyn/lock.h>
#include <vyn/logging.h>
#include <vyn/socket_address.h>
#include <vyn/worker.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <unordered_map>
#include <utility>

#include "common/tick.h"
#include "connector/life_watch.h"
#include "device/socket_io.h"

namespace vyn {

namespace {

constexpr int64_t kNsPerMs = 1000000;

// The client devices that there are. Never destroyed: devices may still be when the process exits.
struct Links {
    Lock lock;
    std::unordered_map<const Device*, ClientLink*> byDevice VYN_GUARDED_BY(lock);
    std::atomic<int> count{0};
};

Links& links() {
    static auto* const all = new Links();
    return *all;
}

ClientLink* linkOf(const Device* device) {
    AutoLock lock(links().lock);
    const auto found = links().byDevice.find(device);
    return found == links().byDevice.end() ? nullptr : found->second;
}

}  // namespace

ClientLink::ClientLink(Device& device, SocketBase& socket, const ClientOptions& options,
                       const ClientFunctions& functions, Steps steps)
    : mDevice(device),
      mSocket(socket),
      mOptions(options),
      mFunctions(functions),
      mSteps(std::move(steps)),
      mRandom(static_cast<uint32_t>(tick::nanoseconds()) ^
              static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this))) {
    AutoLock lock(links().lock);
    links().byDevice[&device] = this;
    links().count.fetch_add(1, std::memory_order_relaxed);
}

ClientLink::~ClientLink() {
    close();
    AutoLock lock(links().lock);
    links().byDevice.erase(&mDevice);
    links().count.fetch_sub(1, std::memory_order_relaxed);
}

bool ClientLink::exists() { return links().count.load(std::memory_order_relaxed) != 0; }

bool ClientLink::start() {
    Worker* const worker = mSteps.worker();
    const bool hasEnded = worker != nullptr && !worker->isValid();  // as in onDisconnected()
    if (mState != State::kIdle && !(mState == State::kConnected && hasEnded)) {
        errno = mState == State::kConnected ? EISCONN : EALREADY;
        return false;
    }
    if (!open()) return false;
    if (hasEnded) renew(worker);
    mFailures = 0;
    beginAttempt();
    setConnecting(true);
    return true;
}

// The loop forgets a descriptor while it is open, here and below.
void ClientLink::stop() {
    mState = State::kIdle;
    setConnecting(false);
    close();
}

bool ClientLink::willReconnect() const {
    const Worker* const worker = mSteps.worker();
    if (worker != nullptr && worker->isLeaving()) return false;
    return isUnderWay() || (mState == State::kConnected && mOptions.reconnect);
}

int ClientLink::fd() const {
    if (mState == State::kConnected) return mSocket.fd();
    return mState == State::kIdle ? -1 : mEpoll;
}

void ClientLink::onReadable() {
    uint64_t times = 0;
    const bool wentOff = ::read(mTimer, &times, sizeof times) == sizeof times;
    if (mState == State::kConnecting) {
        onAttemptOver(wentOff);
    } else if (mState == State::kWaiting && wentOff) {
        beginAttempt();
    }
}

void ClientLink::beginAttempt() {
    mState = State::kConnecting;
    mBeginError = mSteps.begin() ? 0 : errno;
    epoll_event event{};
    event.events = EPOLLOUT;
    if (mBeginError == 0 && epoll_ctl(mEpoll, EPOLL_CTL_ADD, mSocket.fd(), &event) != 0) {
        mBeginError = errno;
    }
    // What has failed already is the loop's to report, in its next turn.
    setTimer(mBeginError != 0 ? 1 : std::max(mOptions.timeoutMs, 0) * kNsPerMs);
}

// The device may be gone afterwards.
void ClientLink::onAttemptOver(bool timedOut) {
    const int error = resultOfAttempt();
    if (error == 0) {
        succeed();
    } else if (error != EINPROGRESS) {
        fail(error, false);
    } else if (timedOut) {
        fail(ETIMEDOUT, true);
    }
}

int ClientLink::resultOfAttempt() const {
    if (mBeginError != 0) return mBeginError;
    pollfd entry{mSocket.fd(), POLLOUT, 0};
    if (poll(&entry, 1, 0) < 1) return EINPROGRESS;
    const int error = io::getOption(mSocket.fd(), SOL_SOCKET, SO_ERROR);
    return error == 0 && isConnectedToItself() ? ECONNREFUSED : error;
}

// A free port of this machine, where a server is to be, may be the one that the kernel gives to the
// client itself; then TCP connects the socket with itself.
bool ClientLink::isConnectedToItself() const {
    SocketAddress local, remote;
    socklen_t localLength = SocketAddress::kCapacity;
    socklen_t remoteLength = SocketAddress::kCapacity;
    if (getsockname(mSocket.fd(), local.raw(), &localLength) != 0) return false;
    if (getpeername(mSocket.fd(), remote.raw(), &remoteLength) != 0) return false;
    return local.family() != AF_UNSPEC && local.port() != 0 && local.port() == remote.port() &&
           local.ip() == remote.ip();
}

void ClientLink::succeed() {
    mSocket.setNonBlock(config::isAsyncWritting());
    mState = State::kConnected;
    mFailures = 0;
    setConnecting(false);
    close();
    const std::function<void()> connected = mFunctions.connected;
    if (connected) connected();
}

void ClientLink::fail(int error, bool timedOut) {
    ++mFailures;
    const bool again =
        mOptions.reconnect && (mOptions.mostAttempts < 1 || mFailures < mOptions.mostAttempts);
    const int delayMs = again ? nextDelayMs() : -1;
    if (again) {
        waitForNextAttempt(delayMs);
    } else {
        stop();
        mSocket.reset();
    }
    const std::function<void(const ConnectFailure&)> failed = mFunctions.failed;
    const LifeWatch life(&mDevice);
    if (failed) failed({error, timedOut, mFailures, delayMs});
    if (life.ended() || again || mState != State::kIdle) return;
    mDevice.onDisconnected();
}

void ClientLink::onEndReported(Device* device, Worker* worker) {
    ClientLink* const link = linkOf(device);
    if (link != nullptr && link->mSteps.worker() == worker) link->onLost(worker);
}

void ClientLink::onLost(Worker* worker) {
    if (mState == State::kIdle) return;
    if (isUnderWay() && worker->isValid()) return;  // connect() was called meanwhile
    if (!willReconnect() || (!isUnderWay() && !open())) {
        stop();
        return;
    }
    renew(worker);
    const bool isLost = !isUnderWay();  // or too much was queued
    if (isLost) mState = State::kWaiting;
    setConnecting(true);  // also where the loop had let go of a worker that was not valid
    if (isLost) waitForNextAttempt(nextDelayMs());
}

void ClientLink::renew(Worker* worker) {
    worker->dropWrites();
    worker->enable();
}

// The loop then watches what the device names in its new state.
void ClientLink::setConnecting(bool connecting) {
    if (Worker* const worker = mSteps.worker()) worker->setConnecting(connecting);
}

// A copy of the socket, as in a forked child, would go on being reported.
void ClientLink::waitForNextAttempt(int ms) {
    mState = State::kWaiting;
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, mSocket.fd(), nullptr);
    mSocket.reset();
    setTimer(std::max(ms * kNsPerMs, int64_t{1}));
}

int ClientLink::nextDelayMs() {
    const int doublings = std::clamp(mFailures - 1, 0, 30);
    const int64_t full = std::min<int64_t>(int64_t{std::max(mOptions.firstDelayMs, 0)} << doublings,
                                           std::max(mOptions.longestDelayMs, 0));
    const auto half = static_cast<int>(full / 2);
    return half + std::uniform_int_distribution<int>(0, static_cast<int>(full) - half)(mRandom);
}

bool ClientLink::open() {
    mEpoll = epoll_create1(EPOLL_CLOEXEC);
    mTimer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    epoll_event event{};
    event.events = EPOLLIN;
    if (mEpoll >= 0 && mTimer >= 0 && epoll_ctl(mEpoll, EPOLL_CTL_ADD, mTimer, &event) == 0) {
        return true;
    }
    VYN_LOG_ERRNO_ERROR << "no descriptors to connect with. " << &mDevice;
    close();
    return false;
}

void ClientLink::close() {
    io::closeDescriptor(std::exchange(mEpoll, -1));
    io::closeDescriptor(std::exchange(mTimer, -1));
}

// 0 switches it off.
void ClientLink::setTimer(int64_t ns) {
    itimerspec time{};
    time.it_value.tv_sec = static_cast<time_t>(ns / (1000 * kNsPerMs));
    time.it_value.tv_nsec = static_cast<long>(ns % (1000 * kNsPerMs));
    timerfd_settime(mTimer, 0, &time, nullptr);
}

}  // namespace vyn
