// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn {

// Tells a function whether an object, or one of two, was destroyed during a call that it made.
//
// The application deletes workers, devices and parsers inside its callbacks, so a function that
// must go on after such a call watches the object over it:
//
//     LifeWatch life(worker);
//     executor->onCommand(worker, command);
//     if (life.ended()) return;
//
// Sees destruction on its own thread only, which is where callbacks run. Watches live on the stack.
// All is inline, so that a function with several watches finds its thread's innermost once.
class LifeWatch {
  public:
    // Null for no other one.
    explicit LifeWatch(const void* object, const void* other = nullptr)
        : mObject(object), mOther(other), mOuter(tInnermost) {
        tInnermost = this;
    }
    ~LifeWatch() { tInnermost = mOuter; }
    LifeWatch(const LifeWatch&) = delete;
    LifeWatch& operator=(const LifeWatch&) = delete;

    bool ended() const { return mEnded; }
    bool otherEnded() const { return mOtherEnded; }

    // Called by the destructor of an object that may be watched.
    static void end(const void* object) {
        for (LifeWatch* watch = tInnermost; watch != nullptr; watch = watch->mOuter) {
            if (watch->mObject == object) watch->mEnded = true;
            if (watch->mOther == object) watch->mOtherEnded = true;
        }
    }

  private:
    // The innermost watch of this thread; the others follow through mOuter.
    static inline thread_local LifeWatch* tInnermost = nullptr;

    const void* mObject;
    const void* mOther;
    bool mEnded = false;
    bool mOtherEnded = false;
    LifeWatch* mOuter;
};

}  // namespace vyn
