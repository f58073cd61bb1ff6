#include "connector/rest_end.h"

#include "connector/connector_linux.h"

namespace vyn {

Message RestEnd::messageFor(const Registration& resting) {
    Message message = Message::obtain(this, 0, static_cast<int>(resting.ticket),
                                      static_cast<int>(resting.ticket >> 32), resting.worker);
    return message;
}

void RestEnd::onMessage(Message message) {
    const uint64_t ticket =
        static_cast<uint32_t>(message.arg1) | uint64_t{static_cast<uint32_t>(message.arg2)} << 32;
    mConnector.endRest({static_cast<Worker*>(message.obj), ticket});
}

}  // namespace vyn
