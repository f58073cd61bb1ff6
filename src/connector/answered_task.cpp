// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>
#include <vyn/thread_pool.h>

#include <new>
#include <utility>

#include "connector/loop_ticket.h"

namespace vyn {

namespace {

// Work on a thread of a pool whose end a loop is told.
class AnsweredTask : public ThreadPool::Task {
  public:
    AnsweredTask(std::function<void()> work, Connector& loop, std::function<void()> done)
        : mWork(std::move(work)), mLoop(loop), mDone(std::move(done)) {}

    void run() override {
        mWork();
        mWork = nullptr;  // before the loop may use what it has used
        try {
            mLoop.post(mDone);
        } catch (const std::bad_alloc&) {
            VYN_LOG_ERROR << "no memory to post to a loop that a task has ended.";
        }
    }

  private:
    std::function<void()> mWork;
    const LoopTicket mLoop;
    std::function<void()> mDone;
};

}  // namespace

std::optional<int> ThreadPool::addTask(std::function<void()> work, Connector& loop,
                                       std::function<void()> done) {
    return addTask(new AnsweredTask(std::move(work), loop, std::move(done)));
}

}  // namespace vyn
