// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace vyn {

class Worker;

// What becomes of the packets that a parser makes while a worker writes a command: they come back
// through calls that return nothing. Lives on the stack of one thread.
class WriteOutcome {
  public:
    explicit WriteOutcome(const Worker* worker) : mWorker(worker), mOuter(tInnermost) {
        tInnermost = this;
    }
    ~WriteOutcome() { tInnermost = mOuter; }
    WriteOutcome(const WriteOutcome&) = delete;
    WriteOutcome& operator=(const WriteOutcome&) = delete;

    // Whether there were packets, and all of them were written or queued.
    bool isWhole() const { return mAny && mWhole; }

    // Notes it for the worker's innermost command, if there is one; returns `isWhole`.
    static bool note(const Worker* worker, bool isWhole) {
        WriteOutcome* outcome = tInnermost;
        while (outcome != nullptr && outcome->mWorker != worker) outcome = outcome->mOuter;
        if (outcome == nullptr) return isWhole;
        outcome->mAny = true;
        outcome->mWhole = outcome->mWhole && isWhole;
        return isWhole;
    }

  private:
    static inline thread_local WriteOutcome* tInnermost = nullptr;

    const Worker* mWorker;
    bool mAny = false;
    bool mWhole = true;
    WriteOutcome* mOuter;
};

}  // namespace vyn
