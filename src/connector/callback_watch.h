// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/lock.h>
#include <vyn/loop_figures.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "common/tick.h"
#include "connector/loop_counter.h"
#include "connector/once_a_second.h"

namespace vyn {

struct Message;
class Worker;

// What a loop calls: kept without memory, and without the worker, which the call may delete.
class CallbackName {
  public:
    CallbackName() = default;
    // `callback` is a literal.
    CallbackName(const char* callback, int timer) : mCallback(callback), mNumber(timer) {}
    CallbackName(const char* callback, const Message* message);
    CallbackName(const char* callback, Worker* worker);

    // "onTimer of 3", "onMessage of 2 PING", "onDataArrival of Worker NetDevice".
    std::string text() const;

  private:
    static constexpr size_t kLongest = 32;  // of a class's name, with its end

    const char* mCallback = "";
    int mNumber = 0;
    char mClass[kLongest] = "";  // the worker's; empty without one
    char mName[kLongest] = "";   // its device's class, or the message's name
};

// Times the callbacks of a loop, as long as it has a limit for them; costs a load and a branch for
// each while it has none. The loop's thread calls, and any thread may ask and set.
class CallbackWatch {
  public:
    // Milliseconds; 0 for none. Forgets the longest one.
    void setLimit(int ms);

    // Calls `function`. The subject is a worker, a message, or the id of a timer.
    template <typename Subject, typename Function>
    auto call(const char* callback, Subject subject, Function function) {
        if (__builtin_expect(mLimitMs.load(std::memory_order_relaxed) == 0, 1)) return function();
        return callTimed(callback, subject, function);
    }

    // Fills in what they show of callbacks.
    void report(LoopFigures& figures);

  private:
    // Notes for how long it lives.
    class Timed {
      public:
        Timed(CallbackWatch& watch, const CallbackName& name) : mWatch(watch), mName(name) {}
        ~Timed() { mWatch.note(mName, tick::nanoseconds() - mBegan); }
        Timed(const Timed&) = delete;
        Timed& operator=(const Timed&) = delete;

      private:
        CallbackWatch& mWatch;
        const CallbackName mName;
        const int64_t mBegan = tick::nanoseconds();
    };

    // Aside, so that its frame costs who does not time callbacks nothing.
    template <typename Subject, typename Function>
    [[gnu::noinline, gnu::cold]] auto callTimed(const char* callback, Subject subject,
                                                Function function) {
        const Timed timed(*this, CallbackName(callback, subject));
        return function();
    }
    void note(const CallbackName& name, int64_t nanoseconds);

    std::atomic<int> mLimitMs{0};
    LoopCount mSlow;
    OnceASecond mLine;
    Lock mLock;
    int64_t mLongestUs VYN_GUARDED_BY(mLock) = -1;
    CallbackName mLongest VYN_GUARDED_BY(mLock);
};

}  // namespace vyn
