// SPDX-License-Identifier: Apache-2.0

#include "support/repeat.h"

#include <vector>

#include "support/machine.h"

namespace bench {

namespace {

constexpr int64_t kBatchNs = 2000000;
constexpr int kBatches = 151;

int64_t timeOf(const std::function<void(int64_t)>& batch, int64_t operations) {
    const int64_t start = threadCpuTime();
    batch(operations);
    return threadCpuTime() - start;
}

}  // namespace

double nanosecondsEach(const std::function<void(int64_t)>& batch) {
    int64_t operations = 1;
    while (timeOf(batch, operations) < kBatchNs) operations *= 2;

    std::vector<int64_t> times;
    for (int i = 0; i < kBatches; ++i) times.push_back(timeOf(batch, operations));
    return percentile(times, 0.5) / static_cast<double>(operations);
}

}  // namespace bench
