// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>

#include <cstdint>
#include <vector>

// The machine's clocks, cores and limits.
namespace bench {

// Nanoseconds of the monotonic clock.
int64_t now();
// Nanoseconds that the calling thread, or the whole process, has spent on a core so far.
int64_t threadCpuTime();
int64_t processCpuTime();
// That another thread has spent.
int64_t cpuTimeOf(pthread_t thread);

// The measured side runs on one core and what loads it on the other.
constexpr int kLoadCore = 0;
constexpr int kMeasuredCore = 1;
// Binds the calling thread, and those that it starts from here on, to the n-th core that this
// process may use. Ends the program when there is no such core.
void pinTo(int n);

// How far the two cores are apart: nanoseconds until what one of them writes is seen by the other.
double coreDistance();

// Lets the process open this many descriptors, or ends it.
void allowDescriptors(int count);

// The value below which `share` (0 to 1) of the values lie. Sorts them; there is at least one.
double percentile(std::vector<int64_t>& values, double share);

}  // namespace bench
