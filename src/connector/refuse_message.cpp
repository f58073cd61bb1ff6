// SPDX-License-Identifier: Apache-2.0

#include "connector/refuse_message.h"

#include <vyn/device.h>
#include <vyn/logging.h>

namespace vyn {

void refuseMessage(const char* kind, size_t longest, Device* device) {
    VYN_LOG_ERROR << kind << " of more than " << longest << " bytes, disconnect " << device;
    if (device != nullptr) device->disconnect();
}

}  // namespace vyn
