// SPDX-License-Identifier: Apache-2.0

#include <vyn/authenticator.h>
#include <vyn/command.h>
#include <vyn/device.h>
#include <vyn/helper.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <algorithm>
#include <new>

#include "common/tick.h"
#include "connector/event_tick.h"
#include "connector/gather_scope.h"
#include "connector/life_watch.h"
#include "connector/missing_part.h"
#include "connector/parser_call.h"
#include "connector/worker_tick.h"
#include "device/client_link.h"

// The worker's incoming side, its events and its heartbeat; see worker_write.cpp for what goes out.

namespace vyn {

void reportMissingPart(Worker* worker) {
    VYN_LOG_ERROR << "executor or parser is missing. " << worker;
}

Worker::Worker() : mValid(true), mLastReadTick(tick32()), mLastSentTick(tick32()) {}

Worker::Worker(Device* device, Parser* parser)
    : mDevice(device),
      mParser(parser),
      mValid(device != nullptr),
      mLastReadTick(tick32()),
      mLastSentTick(tick32()) {
    if (device != nullptr) device->attach(this);
}

void Worker::onCommandParsed(Command* cmd) {
    if (!checkValid() || isLeaving()) return;
    mLastReadTick.store(static_cast<int32_t>(EventTick::ofRead()), std::memory_order_relaxed);
    onPostCreateCommand(cmd);
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN(mExecutor != NULL);
    getExecutor()->onCommand(this, cmd);
}

const char* Worker::getClassName() { return "Worker"; }

void Worker::dump(std::ostream& os) { os << mDevice; }

void Worker::onPostCreateCommand(Command*) {}

void Worker::onBeforeCreatePacket(Command*) {}

bool Worker::handledBeforeParser(const void*, int) { return false; }

bool Worker::hasRemoteTimedout(long) { return false; }

void Worker::sendHeartbit(long) {}

void Worker::attach(Connector* connector, Connector::Executor* executor) {
    mConnector.store(connector, std::memory_order_release);
    mExecutor.store(executor, std::memory_order_release);
}

void Worker::attach(Authenticator* auth) {
    mAuthenticator = auth;
    if (auth != nullptr) auth->attach(this);
}

bool Worker::isValid() const { return mValid.load(std::memory_order_relaxed); }

void Worker::enable() {
    mReason.store(DisconnectReason::kNone, std::memory_order_relaxed);
    mError.store(0, std::memory_order_relaxed);
    beginAnew();
    mValid.store(true, std::memory_order_relaxed);
    // The loop has let go of writes that were waiting while the worker was not valid.
    if (hasWrittingData()) requestServing();
}

void Worker::disable() { mValid.store(false, std::memory_order_relaxed); }

void Worker::setLoading(int loading) { mLoading = loading; }

void Worker::setSelfCallFlag(bool selfCall) { mSelfCall = selfCall; }

int Worker::getFd() { return mDevice == nullptr ? -1 : mDevice->getFd(); }

std::vector<int> Worker::getFds() {
    return mDevice == nullptr ? std::vector<int>() : mDevice->getFds();
}

void Worker::onReady() {
    if (mDevice != nullptr) mDevice->onReady();
    GatherScope::learnKind(this);
}

void Worker::onDataArrival(int fd) {
    if (mDevice == nullptr) return;
    const GatherScope gathering(this);
    mDevice->onDataArrival(fd);
}

void Worker::checkHeartbit() {
    if (!checkValid() || isConnecting() || isLeaving()) return;
    Connector* const connector = getConnector();
    const uint64_t ticket = connector == nullptr ? 0 : connector->ticketOf(this);
    const int64_t now = tick::now();
    const long silence = silenceUntil(now);
    LifeWatch life(static_cast<PostListener*>(this));
    keepAlive(now);
    // That may have found the peer gone, and the executor acted on it.
    if (life.ended() || (ticket != 0 && getConnector()->ticketOf(this) != ticket)) return;
    reportSilence(silence);
}

void Worker::keepAlive(int64_t now) {
    const int32_t lastWrite = mLastWriteTick.load(std::memory_order_relaxed);
    long sinceLastWrite = helper::tickDifference(tick::toTick(now), lastWrite);
    // Written a moment ago, by a callback for another worker.
    if (sinceLastWrite < 0 && lastWrite != 0) {
        sinceLastWrite = helper::tickDifference(helper::mtick(), lastWrite);
    }
    sendHeartbit(sinceLastWrite);
}

bool Worker::reportSilence(long silence) {
    if (!hasRemoteTimedout(silence)) return false;
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN_VALUE(mExecutor != NULL, true);
    getExecutor()->onHeartbitTimeout(this);
    return true;
}

void Worker::onData(const void* data, int len) {
    if (!checkValid()) return;
    const int64_t now = EventTick::ofRead();
    mLastReadTick.store(static_cast<int32_t>(now), std::memory_order_relaxed);
    if (isLeaving()) return;
    const GatherScope gathering(this);
    deliver(data, len, now);
}

void Worker::deliver(const void* data, int len, int64_t now) {
    if (mAuthenticator != nullptr && !mAuthenticator->pass()) {
        mAuthenticator->onData(data, len);
        return;
    }
    if (handledBeforeParser(data, len)) return;
    tellIfMissing(mParser, this);
    VYN_CHECK_OR_RETURN(mParser != NULL);
    mParser->setListener(this);
    const EventTick::Scope look(now, true);
    mParser->doParse(data, len);
}

void Worker::onDisconnected() {
    setDisconnectReason(DisconnectReason::kOwnWish);
    disable();
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN(mExecutor != NULL);
    if (!ClientLink::exists()) {
        getExecutor()->onDisconnected(this);
        return;
    }
    Device* const device = mDevice;
    const LifeWatch life(static_cast<PostListener*>(this));
    getExecutor()->onDisconnected(this);
    if (!life.ended()) ClientLink::onEndReported(device, this);
}

void Worker::onNewConnection(int fd, void* data) {
    if (!checkValid()) return;
    mLastReadTick.store(tick32(), std::memory_order_relaxed);
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN(mExecutor != NULL);
    getExecutor()->onNewConnection(this, fd, data);
}

void Worker::onNetworkChanged() {
    if (!checkValid()) return;
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN(mExecutor != NULL);
    getExecutor()->onNetworkChanged(this);
}

void Worker::onFileChanged(const std::string& path, int mask) {
    if (!checkValid()) return;
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN(mExecutor != NULL);
    getExecutor()->onFileChanged(this, path, mask);
}

void Worker::onDescriptorsChanged() {
    Connector* const connector = getConnector();
    if (connector != nullptr) connector->updateDescriptorsOf(this);
}

void Worker::onDeviceRests(int ms) {
    Connector* const connector = getConnector();
    if (connector != nullptr) connector->restDescriptorsOf(this, ms);
}

void Worker::requireAuth() {
    if (mAuthenticator != nullptr) mAuthenticator->require();
}

bool Worker::hasAuthenticated() { return mAuthenticator == nullptr || mAuthenticator->pass(); }

void Worker::onAuthenticated() {
    if (!checkValid()) return;
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN(mExecutor != NULL);
    getExecutor()->onAuthenticated(this);
}

void Worker::onAuthenticationFailed() {
    if (!checkValid()) return;
    tellIfMissing(getExecutor(), this);
    VYN_CHECK_OR_RETURN(mExecutor != NULL);
    getExecutor()->onAuthenticationFailed(this);
}

void Worker::warnNotValid(const char* operation) {
    logging::detail::Line(logging::kTag, __FILE__, operation, __LINE__, logging::kLevelWarning)
            .stream()
        << "not valid";
}

std::ostream& operator<<(std::ostream& os, Worker* worker) {
    if (worker == nullptr) return os << "Worker(NULL)";
    os << worker->getClassName() << "(" << static_cast<const void*>(worker)
       << "): {Connector=" << static_cast<const void*>(worker->getConnector()) << ", ";
    try {
        worker->dump(os);
    } catch (const std::bad_alloc&) {  // a line about a worker ends no loop
        os.setstate(std::ios_base::badbit);
    }
    return os << "}";
}

std::ostream& operator<<(std::ostream& os, Worker& worker) { return os << &worker; }

}  // namespace vyn
