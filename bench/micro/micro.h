// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <benchmark/benchmark.h>

#include <vector>

// One operation of the library at a time, under Google Benchmark.
namespace bench {

struct Micro {
    const char* name;
    void (*run)(benchmark::State& state);
};

std::vector<Micro> dataMicros();
std::vector<Micro> logMicros();
std::vector<Micro> loopMicros();

}  // namespace bench
