// SPDX-License-Identifier: Apache-2.0

#pragma once

// What most tests of loops and devices stand on.

#include <vyn/config.h>
#include <vyn/timer.h>

#include <memory>
#include <random>

#include "support/application.h"
#include "support/descriptors.h"
#include "support/devices.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/timing.h"

namespace vyn::testing {

using Strings = std::vector<std::string>;

// What a value looks like in a stream.
template <typename Value>
std::string printed(Value&& value) {
    std::ostringstream os;
    os << value;
    return os.str();
}

}  // namespace vyn::testing
