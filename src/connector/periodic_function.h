// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/timer.h>

#include <functional>
#include <utility>

namespace vyn {

// A timer that calls a function until it is removed, and deletes itself then.
class PeriodicFunction : public Timer {
  public:
    explicit PeriodicFunction(std::function<void()> function) : mFunction(std::move(function)) {}

    bool onTimer(void*, int) override {
        const Calling calling(*this);
        mFunction();
        return true;  // which is not looked at once it is removed
    }
    // On another thread only when it is not being called.
    void onTimerRemoved() override {
        mIsRemoved = true;
        if (!mIsCalling) delete this;
    }

  private:
    // Ends with the function, also when it throws.
    struct Calling {
        PeriodicFunction& timer;

        explicit Calling(PeriodicFunction& called) : timer(called) { timer.mIsCalling = true; }
        ~Calling() {
            timer.mIsCalling = false;
            if (timer.mIsRemoved) delete &timer;
        }
    };

    std::function<void()> mFunction;
    bool mIsCalling = false;
    bool mIsRemoved = false;  // by the function itself
};

}  // namespace vyn
