// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/connector.h>
#include <vyn/message.h>

#include <functional>
#include <future>
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
        auto* request = new Call;
        request->task = std::packaged_task<void()>(std::move(function));
        std::future<void> done = request->task.get_future();
        mConnector->sendMessageDelayed(nullptr, Message::obtain(request, 0, 0, 0, nullptr), 0);
        done.get();
    }

  private:
    struct Call : Message::Callback {
        std::packaged_task<void()> task;
        void onMessage(Message) override {
            task();
            delete this;
        }
    };

    std::thread mThread;
    Connector* mConnector = nullptr;
};

}  // namespace vyn::testing
