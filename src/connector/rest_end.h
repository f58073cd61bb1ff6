#pragma once

#include <vyn/message.h>

#include "connector/worker_entry.h"

namespace vyn {

class LinuxConnector;

// Gets the messages by which a connector reminds itself of workers whose descriptors rest.
class RestEnd : public Message::Callback {
  public:
    explicit RestEnd(LinuxConnector& connector) : mConnector(connector) {}

    // Carries the registration by value: nobody has to free it when the loop ends before.
    Message messageFor(const Registration& resting);
    void onMessage(Message message) override;

  private:
    LinuxConnector& mConnector;
};

}  // namespace vyn
