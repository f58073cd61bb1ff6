// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/connector.h>

#include <functional>
#include <future>
#include <memory>
#include <thread>

namespace vyn::testing {

// A connector that runs on a thread of its own until this object goes.
class LoopThread {
  public:
    LoopThread() {
        std::promise<Connector*> created;
        mThread = std::thread([&created] {
            Connector loop;
            created.set_value(&loop);
            loop.run();
        });
        mConnector = created.get_future().get();
        // Until the loop has started, stop() would have no effect.
        call([] {});
    }
    ~LoopThread() {
        call([this] { mConnector->stop(); });
        mThread.join();
    }

    Connector& connector() { return *mConnector; }

    // Runs `function` on the loop's thread, which may be this one, and waits for its end.
    void call(std::function<void()> function) {
        if (Connector::current() == mConnector) return function();
        const auto task = std::make_shared<std::packaged_task<void()>>(std::move(function));
        mConnector->post([task] { (*task)(); });
        task->get_future().get();
    }

  private:
    std::thread mThread;
    Connector* mConnector = nullptr;
};

}  // namespace vyn::testing
