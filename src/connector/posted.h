// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/message.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "common/tick.h"

namespace vyn {

// A message or a function that waits for its turn in a loop, as part of a list there. A message
// with its place in the list fills one line of the cache where addresses have 64 bits.
class Posted {
  public:
    struct Function {
        std::function<void()> call;
        uint64_t id;  // that it is cancelled by
    };
    struct Delete {
        void operator()(Posted* posted) const;
    };
    using Ptr = std::unique_ptr<Posted, Delete>;

    // On any thread; deleted on whatever thread. What is to stay for long has memory of its own,
    // the rest shares blocks; see posted_memory.cpp.
    template <typename Content>
    static Ptr make(Content content, bool isToStay) {
        Posted* const made =
            isToStay ? ::new Posted(std::move(content)) : new Posted(std::move(content));
        made->mDueAndFlags |= isToStay ? kHasOwnMemory : 0;
        return Ptr(made);
    }

    bool isFunction() const { return (mDueAndFlags & kIsFunction) != 0; }
    // The one that it is.
    Message& message() { return mMessage; }
    Function& function() { return mFunction; }

    // A tick::now(), which a message shows as a tick.
    int64_t due() const { return (mDueAndFlags - flags()) / kDueUnit; }
    void setDue(int64_t due) {
        mDueAndFlags = due * kDueUnit + flags();
        if (!isFunction()) mMessage.when = tick::toTick(due);
    }

    Posted* next = nullptr;

  private:
    static constexpr int64_t kIsFunction = 1, kHasOwnMemory = 2, kDueUnit = 4;

    explicit Posted(const Message& message) : mMessage(message) {}
    explicit Posted(Function function)
        : mDueAndFlags(kIsFunction), mFunction(std::move(function)) {}
    ~Posted() { isFunction() ? mFunction.~Function() : mMessage.~Message(); }

    static void* operator new(size_t size);
    static void operator delete(void* place) noexcept;

    int64_t flags() const { return mDueAndFlags & (kDueUnit - 1); }

    int64_t mDueAndFlags = 0;
    union {
        Message mMessage;
        Function mFunction;
    };
};

inline void Posted::Delete::operator()(Posted* posted) const {
    (posted->mDueAndFlags & kHasOwnMemory) != 0 ? ::delete posted : delete posted;
}

}  // namespace vyn
