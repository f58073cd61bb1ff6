// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/lock.h>
#include <vyn/message.h>

#include <cstdint>
#include <memory>
#include <unordered_map>

namespace vyn {

class FunctionDevice;

// The bytes on their way to function devices.
//
// A message with a callback cannot be withdrawn, and a connector may be destroyed with messages
// waiting. So messages to a function device are addressed to this one object, which lives as long
// as the process and hands them on. They name the device by the number of its mailbox, which no
// other device ever gets, and the bytes belong to the mailbox until they are delivered: whichever
// of device, message and connector goes first, nothing is touched that is gone, and nothing leaks.
//
// Any thread. The lock is held for look-ups only.
class FunctionMail : public Message::Callback {
  public:
    // The code of the messages that carry bytes.
    static constexpr int kDataCode = 1001;

    static FunctionMail& instance();

    // A mailbox for a device, which closes it when it is destroyed.
    uint64_t open(FunctionDevice* device);
    // Drops what is still on its way.
    void close(uint64_t mailbox);

    // The message that carries a copy of `len` bytes, at least 0, to an open mailbox.
    Message pack(uint64_t mailbox, const void* data, int len);

    // Has the device take the message; without the device it is dropped.
    void onMessage(Message message) override;

  private:
    using Bytes = std::unique_ptr<char[]>;
    struct Mailbox {
        FunctionDevice* device;
        std::unordered_map<void*, Bytes> waiting;  // by their address
    };

    FunctionMail() = default;
    FunctionDevice* take(const Message& message);

    Lock mLock;
    uint64_t mLastMailbox VYN_GUARDED_BY(mLock) = 0;
    std::unordered_map<uint64_t, Mailbox> mMailboxes VYN_GUARDED_BY(mLock);
};

}  // namespace vyn
