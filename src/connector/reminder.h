// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/message.h>

#include "connector/worker_entry.h"

namespace vyn {

class LinuxConnector;

// Gets the messages by which a connector reminds itself of its workers.
class Reminder : public Message::Callback {
  public:
    explicit Reminder(LinuxConnector& connector) : mConnector(connector) {}

    enum Of : int {
        kRest,       // their descriptors have rested
        kLastWords,  // their time for last words is over
    };
    // Carries the registration by value: nobody has to free it when the loop ends before.
    Message messageFor(Of what, const Registration& registration);
    void onMessage(Message message) override;

  private:
    LinuxConnector& mConnector;
};

}  // namespace vyn
