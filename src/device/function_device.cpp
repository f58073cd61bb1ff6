// SPDX-License-Identifier: Apache-2.0

#include <vyn/function_device.h>
#include <vyn/logging.h>

#include <memory>
#include <utility>

#include "device/function_mail.h"
#include "device/function_registry.h"

namespace vyn {

FunctionDevice::FunctionDevice(Connector::Executor* executor)
    : mExecutor(executor), mMailbox(FunctionMail::instance().open(this)) {}

FunctionDevice::~FunctionDevice() {
    FunctionDevice::disconnect();
    FunctionRegistry::instance().forget(this);
    FunctionMail::instance().close(mMailbox);
}

void FunctionDevice::listen(const std::string& name) {
    FunctionRegistry::instance().listen(name, this);
    setName(name + "[L]");
}

bool FunctionDevice::connect(const std::string& name) {
    if (isPaired()) {
        VYN_CHECK_FAILURE("mPeer == NULL") << "cannot connect twice.";
        return false;
    }
    FunctionDevice* listener = FunctionRegistry::instance().find(name);
    if (listener == nullptr) {
        VYN_LOG_INFO << "No such function device.";
        return false;
    }
    setName(name + "[C]");
    listener->onNewConnection(kConnectionFd, this);
    return true;
}

bool FunctionDevice::accept(FunctionDevice* peer) {
    VYN_CHECK_OR_RETURN_VALUE(peer != NULL, true);
    setName(peer->name() + "[A]");
    FunctionRegistry::instance().pair(this, peer);
    return true;
}

const char* FunctionDevice::getClassName() { return "FunctionDevice"; }

void FunctionDevice::onDataArrival(int) {}

int FunctionDevice::write(const void* data, int len) {
    if (!sendToPeer(data, len)) VYN_CHECK_FAILURE("mPeer != NULL");
    return len;
}

int FunctionDevice::getFd() { return -1; }

void FunctionDevice::disconnect() { FunctionRegistry::instance().disconnect(this); }

void FunctionDevice::dump(std::ostream& os) { os << name(); }

void FunctionDevice::onMessage(Message msg) {
    if (msg.what != FunctionMail::kDataCode) return;
    const std::unique_ptr<char[]> bytes(static_cast<char*>(msg.obj));
    onData(bytes.get(), msg.arg1);  // the device may be gone afterwards
}

// Returns the peer so far. Called by the registry alone.
FunctionDevice* FunctionDevice::setPeer(FunctionDevice* peer) {
    AutoLock lock(mLock);
    return std::exchange(mPeer, peer);
}

void FunctionDevice::setName(const std::string& name) {
    AutoLock lock(mLock);
    mName = name;
}

std::string FunctionDevice::name() {
    AutoLock lock(mLock);
    return mName;
}

bool FunctionDevice::isPaired() {
    AutoLock lock(mLock);
    return mPeer != nullptr;
}

// False when there is no peer. Posts under the lock: whoever ends the peer, and then perhaps its
// executor and connector, first waits here until the message is queued.
bool FunctionDevice::sendToPeer(const void* data, int len) {
    AutoLock lock(mLock);
    if (mPeer == nullptr) return false;
    if (len >= 0) mPeer->post(data, len);
    return true;
}

void FunctionDevice::post(const void* data, int len) {
    mExecutor->sendMessage(FunctionMail::instance().pack(mMailbox, data, len));
}

}  // namespace vyn
