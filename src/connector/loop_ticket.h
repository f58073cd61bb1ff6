// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/message.h>

#include <cstdint>
#include <functional>
#include <list>

namespace vyn {

// Names a loop for who may still have something for it when it is gone. Any thread.
class LoopTicket {
  public:
    // A function that waits in a loop for its turn.
    struct Posted : Message::Callback {
        void onMessage(Message message) override;
        std::function<void()> function;
        Connector* loop = nullptr;
        std::list<Posted>::iterator place;
    };

    // The loop exists.
    explicit LoopTicket(Connector& loop);

    // Posts the function to the loop, on whose thread it is called and destroyed. False when that
    // is gone; the function is left then.
    bool post(std::function<void()>& function) const;

    // The first act of a loop that is destroyed: no other thread posts by a ticket any more. Gives
    // back what waits in the loop, to be destroyed when that has dropped its messages.
    [[nodiscard]] static std::list<Posted> end(Connector* loop);

  private:
    Connector* mLoop;  // which may be gone
    uint64_t mNumber;
};

}  // namespace vyn
