// SPDX-License-Identifier: Apache-2.0

#include <vyn/config.h>

#include <atomic>

namespace vyn::config {

namespace {

class Switch {
  public:
    bool isOn() const { return mOn.load(std::memory_order_relaxed); }
    void set(bool on) { mOn.store(on, std::memory_order_relaxed); }

  private:
    std::atomic<bool> mOn{false};
};

Switch gAsyncWritting;
Switch gDebugBuffer;
Switch gDebugThreadPool;

}  // namespace

bool isAsyncWritting() { return gAsyncWritting.isOn(); }

void setAsyncWritting(bool on) { gAsyncWritting.set(on); }

namespace debug {

bool DEBUG_BUF() { return gDebugBuffer.isOn(); }

void setDEBUG_BUF(bool on) { gDebugBuffer.set(on); }

bool DEBUG_THREAD_POOL_CHECK() { return gDebugThreadPool.isOn(); }

void setDEBUG_THREAD_POOL_CHECK(bool on) { gDebugThreadPool.set(on); }

}  // namespace debug

}  // namespace vyn::config
