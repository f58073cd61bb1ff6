// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <vyn/logging.h>

#include "micro/micro.h"

namespace bench {

namespace {

// main() lets warnings pass.
void writeLine() { VYN_LOG_INFO << "accepted connection " << 17 << " on port " << 7007; }

void filtered(benchmark::State& state) {
    for (auto _ : state) writeLine();
}

// All that is done for a line, but that the system's log takes it.
void written(benchmark::State& state) {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    logging::setLogLevel(logging::kLevelInfo);
    for (auto _ : state) writeLine();
    logging::setLogLevel(logging::kLevelWarning);
    __android_log_set_logger(__android_log_stderr_logger);
}

}  // namespace

std::vector<Micro> logMicros() { return {{"log-filtered", filtered}, {"log-written", written}}; }

}  // namespace bench
