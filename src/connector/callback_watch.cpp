// SPDX-License-Identifier: Apache-2.0

#include "connector/callback_watch.h"

#include <vyn/device.h>
#include <vyn/logging.h>
#include <vyn/message.h>
#include <vyn/worker.h>

#include <algorithm>
#include <cstring>

namespace vyn {

namespace {

template <size_t kSize>
void copyName(char (&to)[kSize], const char* from) {
    if (from == nullptr) return;
    const size_t length = std::min(std::strlen(from), kSize - 1);
    std::memcpy(to, from, length);
    to[length] = '\0';
}

}  // namespace

CallbackName::CallbackName(const char* callback, const Message* message)
    : mCallback(callback), mNumber(message->what) {
    copyName(mName, MessageHelper::name(message->what));
}

CallbackName::CallbackName(const char* callback, Worker* worker) : mCallback(callback) {
    copyName(mClass, worker->getClassName());
    if (worker->getDevice() != nullptr) copyName(mName, worker->getDevice()->getClassName());
}

std::string CallbackName::text() const {
    std::string text = mCallback;
    text += " of ";
    text += mClass[0] == '\0' ? std::to_string(mNumber) : mClass;
    if (mName[0] != '\0') text.append(" ").append(mName);
    return text;
}

void CallbackWatch::setLimit(int ms) {
    AutoLock lock(mLock);
    mLimitMs.store(std::max(ms, 0), std::memory_order_relaxed);
    mLongestUs = -1;
}

void CallbackWatch::note(const CallbackName& name, int64_t nanoseconds) {
    constexpr int64_t kNsPerMs = 1000000;
    const int limit = mLimitMs.load(std::memory_order_relaxed);
    {
        AutoLock lock(mLock);
        if (nanoseconds / 1000 > mLongestUs) {
            mLongestUs = nanoseconds / 1000;
            mLongest = name;
        }
    }
    if (limit == 0 || nanoseconds <= limit * kNsPerMs) return;
    mSlow.add(1);
    if (!mLine.isDue()) return;
    VYN_LOG_WARNING << "the loop was held up for " << nanoseconds / kNsPerMs << " ms by "
                    << name.text();
}

void CallbackWatch::report(LoopFigures& figures) {
    figures.slowCallbacks = mSlow.value();
    AutoLock lock(mLock);
    if (mLongestUs < 0) return;
    figures.longestCallbackUs = mLongestUs;
    figures.longestCallback = mLongest.text();
}

}  // namespace vyn
