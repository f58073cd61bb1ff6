// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstdint>

#include "connector/posted.h"
#include "connector/wake_pipe.h"

namespace vyn {

// What was posted without a delay since the loop last looked, the newest first. There is no lock
// that a poster could hold while it is not run: what others post arrives all the same.
//
// Any thread may call any operation. Once push() has put an entry in place, the loop may deliver
// it, end, and destroy this stack: of that and of the wake pipe nothing is touched any more but
// what WakePipe::Waking keeps alive.
class PostedStack {
  public:
    // `wakePipe` is woken for what is pushed; not owned.
    explicit PostedStack(WakePipe& wakePipe) : mWakePipe(wakePipe) {}

    // Has the cache fetch what push() needs, which the loop has most likely written to on another
    // core. Does not wait for that: to be called before the entry is made.
    void expectPush() const {
        __builtin_prefetch(&mNewest, 1);
        __builtin_prefetch(&mWakePipe, 1);
    }
    // Takes the entry over, and wakes the loop if that may be waiting.
    void push(Posted* posted);
    // All that was pushed, linked by `next`, for the caller to delete; null for nothing.
    [[nodiscard]] Posted* takeAll();

    // Loop thread. From here on until the next takeAll() whoever pushes wakes the loop. Returns
    // false when there is something already, for which it is not woken.
    [[nodiscard]] bool beginWait();

    bool isEmpty() const { return mNewest.load(std::memory_order_relaxed) <= 1; }

  private:
    void pushAndWake(Posted* posted, uintptr_t newest);

    WakePipe& mWakePipe;
    // The address of the newest, and in the lowest bit, whether the loop may wait and nobody has
    // woken it. Alone in its line of the cache, as the loop writes to what is beside it.
    alignas(64) std::atomic<uintptr_t> mNewest{0};
};

}  // namespace vyn
