// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace vyn {

// A figure that the loop's thread alone changes and any thread reads. So that it costs no more than
// a plain number, nothing else is ordered by it.
template <typename Number>
class LoopCounter {
  public:
    Number value() const { return mValue.load(std::memory_order_relaxed); }
    // The loop's.
    void add(Number more) { set(value() + more); }
    void raiseTo(Number least) { set(std::max(value(), least)); }

  private:
    void set(Number number) { mValue.store(number, std::memory_order_relaxed); }

    std::atomic<Number> mValue{0};
};

using LoopCount = LoopCounter<uint64_t>;

}  // namespace vyn
