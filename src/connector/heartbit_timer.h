// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/timer.h>

namespace vyn {

class LinuxConnector;

// The connector's own timer, which has every worker check its heartbeat.
class HeartbitTimer : public Timer {
  public:
    static constexpr long kIntervalMs = 200;

    explicit HeartbitTimer(LinuxConnector& connector) : mConnector(connector) {}

    bool onTimer(void* arg, int count) override;

  private:
    LinuxConnector& mConnector;
};

}  // namespace vyn
