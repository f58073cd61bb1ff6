// SPDX-License-Identifier: Apache-2.0

#include "device/function_mail.h"

#include <vyn/function_device.h>

#include <cstring>

namespace vyn {

namespace {

// A mailbox's number travels in the two arguments that such a message leaves unused.
void address(Message& message, uint64_t mailbox) {
    message.arg2 = static_cast<int>(static_cast<uint32_t>(mailbox));
    message.arg3 = static_cast<int>(static_cast<uint32_t>(mailbox >> 32));
}

uint64_t addressOf(const Message& message) {
    return static_cast<uint32_t>(message.arg2) | uint64_t{static_cast<uint32_t>(message.arg3)}
                                                     << 32;
}

}  // namespace

// Never destroyed: loops may still run when the process exits.
FunctionMail& FunctionMail::instance() {
    static auto* const mail = new FunctionMail();
    return *mail;
}

uint64_t FunctionMail::open(FunctionDevice* device) {
    AutoLock lock(mLock);
    mMailboxes[++mLastMailbox].device = device;
    return mLastMailbox;
}

void FunctionMail::close(uint64_t mailbox) {
    std::unordered_map<void*, Bytes> dropped;  // freed when the lock is released
    AutoLock lock(mLock);
    const auto found = mMailboxes.find(mailbox);
    dropped.swap(found->second.waiting);
    mMailboxes.erase(found);
}

Message FunctionMail::pack(uint64_t mailbox, const void* data, int len) {
    const auto size = static_cast<size_t>(len);
    Bytes bytes(new char[size]);
    if (size > 0) std::memcpy(bytes.get(), data, size);
    Message message = Message::obtain(this, kDataCode, len, 0, bytes.get());
    address(message, mailbox);
    AutoLock lock(mLock);
    mMailboxes[mailbox].waiting.emplace(message.obj, std::move(bytes));
    return message;
}

void FunctionMail::onMessage(Message message) {
    FunctionDevice* device = take(message);
    if (device == nullptr) return;
    message.callback = device;
    address(message, 0);
    device->onMessage(message);
}

// From here on the bytes are the device's, if there is one.
FunctionDevice* FunctionMail::take(const Message& message) {
    AutoLock lock(mLock);
    const auto found = mMailboxes.find(addressOf(message));
    if (found == mMailboxes.end()) return nullptr;
    const auto bytes = found->second.waiting.find(message.obj);
    bytes->second.release();
    found->second.waiting.erase(bytes);
    return found->second.device;
}

}  // namespace vyn
