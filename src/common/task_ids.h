// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>

namespace vyn {

// Hands out the numbers of tasks: 1, 2, ... to the largest int, then the smallest, 0, 1 and so on.
// Any thread; no two calls get one number until the numbers have gone round.
class TaskIds {
  public:
    constexpr explicit TaskIds(int last = 0) : mLast(last) {}

    int next() {
        int last = mLast.load(std::memory_order_relaxed);
        while (!mLast.compare_exchange_weak(last, after(last), std::memory_order_relaxed)) {
        }
        return after(last);
    }

  private:
    static int after(int id) {
        // Unsigned, where passing the largest int is defined.
        return id < 0 ? 0 : static_cast<int>(static_cast<unsigned>(id) + 1);
    }

    std::atomic<int> mLast;
};

}  // namespace vyn
