// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>

namespace vyn {

class Connector;

// Names a loop for who may still have something for it when it is gone. Any thread.
class LoopTicket {
  public:
    // The loop exists.
    explicit LoopTicket(Connector& loop);

    // Posts the function to the loop. False when that is gone; the function is left then.
    bool post(std::function<void()>& function) const;

    // Makes what end() needs. May lack memory, which that could not bear.
    static void prepare();
    // The first act of a loop that is destroyed: no other thread posts by a ticket any more.
    static void end(Connector* loop);

  private:
    Connector* mLoop;  // which may be gone
    uint64_t mNumber;
};

}  // namespace vyn
