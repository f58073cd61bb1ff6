#include "connector/life_watch.h"

namespace vyn {

namespace {

// The innermost watch of this thread; the others follow through mOuter.
thread_local LifeWatch* tInnermost = nullptr;

}  // namespace

LifeWatch::LifeWatch(const void* object) : mObject(object), mOuter(tInnermost) {
    tInnermost = this;
}

LifeWatch::~LifeWatch() { tInnermost = mOuter; }

void LifeWatch::end(const void* object) {
    for (LifeWatch* watch = tInnermost; watch != nullptr; watch = watch->mOuter) {
        if (watch->mObject == object) watch->mEnded = true;
    }
}

}  // namespace vyn
