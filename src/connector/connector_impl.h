// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/connector.h>
#include <vyn/loop_figures.h>

#include <cstdint>
#include <functional>

namespace vyn {

// What stands behind a Connector; see there for what each operation does.
class Connector::Impl {
  public:
    virtual ~Impl() = default;

    virtual void attach(Executor* executor) = 0;
    virtual void detach(Executor* executor) = 0;
    virtual void addWorkerLocked(Worker* worker, Executor* executor) = 0;
    virtual void removeWorkerLocked(Worker* worker) = 0;
    virtual void run() = 0;
    virtual void stop() = 0;
    virtual void dump(std::ostream& os) = 0;
    virtual int addTimer(Timer* timer, long intervalMs, void* arg) = 0;
    virtual void removeTimer(int id) = 0;
    virtual void resetTimer(int id) = 0;
    virtual void sendMessageDelayed(Executor* executor, const Message& message, long delayMs) = 0;
    virtual void queueWrite() = 0;
    virtual void queueWriteOf(Worker* worker) = 0;
    virtual bool queueOverflow(Worker* worker) = 0;
    virtual void updateDescriptorsOf(Worker* worker) = 0;
    virtual void restDescriptorsOf(Worker* worker, long ms) = 0;
    virtual void requestStop(int flushMs) = 0;
    virtual void updateReadingOf(Worker* worker) = 0;
    virtual void remindOf(Worker* worker, int delayMs) = 0;
    virtual uint64_t ticketOf(Worker* worker) = 0;
    virtual int getLoading() = 0;
    virtual void setLoadingRange(int empty, int full) = 0;
    virtual void setInterval(int id, long intervalMs) = 0;
    virtual void setFairness(int turns) = 0;
    virtual uint64_t post(std::function<void()> function, long delayMs) = 0;
    virtual uint64_t every(long ms, std::function<void()> function) = 0;
    virtual void cancel(uint64_t id) = 0;
    // All codes for a null `what`.
    virtual void removeMessages(Executor* executor, const int* what) = 0;
    virtual void setDropListener(std::function<void(const Message&)> listener) = 0;
    virtual bool isOnLoopThread() const = 0;
    virtual LoopFigures figures() = 0;
    virtual void setCallbackLimit(int ms) = 0;
};

}  // namespace vyn
