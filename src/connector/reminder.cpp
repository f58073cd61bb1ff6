// SPDX-License-Identifier: Apache-2.0

#include "connector/reminder.h"

#include "connector/connector_linux.h"

namespace vyn {

Message Reminder::messageFor(Of what, const Registration& registration) {
    return Message::obtain(this, what, static_cast<int>(registration.ticket),
                           static_cast<int>(registration.ticket >> 32), registration.worker);
}

void Reminder::onMessage(Message message) {
    const uint64_t ticket = static_cast<uint64_t>(static_cast<uint32_t>(message.arg2)) << 32 |
                            static_cast<uint32_t>(message.arg1);
    const Registration registration{static_cast<Worker*>(message.obj), ticket};
    message.what == kRest ? mConnector.endRest(registration)
                          : mConnector.endLastWords(registration);
}

}  // namespace vyn
