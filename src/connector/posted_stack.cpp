// SPDX-License-Identifier: Apache-2.0

#include "connector/posted_stack.h"

namespace vyn {

namespace {

constexpr uintptr_t kLoopWaits = 1;

Posted* entryOf(uintptr_t newest) { return reinterpret_cast<Posted*>(newest & ~kLoopWaits); }

}  // namespace

void PostedStack::push(Posted* posted) {
    uintptr_t newest = mNewest.load(std::memory_order_relaxed);
    while ((newest & kLoopWaits) == 0) {
        posted->next = entryOf(newest);
        if (mNewest.compare_exchange_weak(newest, reinterpret_cast<uintptr_t>(posted),
                                          std::memory_order_release, std::memory_order_relaxed)) {
            return;
        }
    }
    pushAndWake(posted, newest);
}

// Until one thread is done with waking the loop, others wake it, too: it may not be run for long.
void PostedStack::pushAndWake(Posted* posted, uintptr_t newest) {
    const WakePipe::Waking waking(mWakePipe);
    const uintptr_t unwoken = reinterpret_cast<uintptr_t>(posted) | kLoopWaits;
    do {
        posted->next = entryOf(newest);
    } while (!mNewest.compare_exchange_weak(newest, unwoken, std::memory_order_release,
                                            std::memory_order_relaxed));
    mWakePipe.wake();
    uintptr_t expected = unwoken;
    mNewest.compare_exchange_strong(expected, unwoken & ~kLoopWaits, std::memory_order_relaxed);
}

Posted* PostedStack::takeAll() {
    return isEmpty() ? nullptr : entryOf(mNewest.exchange(0, std::memory_order_acquire));
}

bool PostedStack::beginWait() {
    uintptr_t newest = mNewest.load(std::memory_order_relaxed);
    if (newest == 0) mNewest.compare_exchange_strong(newest, kLoopWaits, std::memory_order_relaxed);
    return entryOf(newest) == nullptr;
}

}  // namespace vyn
