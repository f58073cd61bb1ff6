#pragma once

// What most tests of loops and devices stand on.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vyn/config.h>
#include <vyn/connector.h>
#include <vyn/message.h>
#include <vyn/timer.h>
#include <vyn/worker.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/console_redirect.h"
#include "support/descriptors.h"
#include "support/fake_device.h"
#include "support/fatal_capture.h"
#include "support/line_protocol.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/manual_clock.h"
#include "support/received_worker.h"
#include "support/recording_executor.h"
#include "support/temporary_folder.h"
#include "support/wait.h"

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
