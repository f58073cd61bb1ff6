// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>

// Times what takes nanoseconds to microseconds.
namespace bench {

// The nanoseconds that one of the operations takes on its core, time in which the core worked for
// others left out: the median of many batches. `batch` carries out the given number of operations.
double nanosecondsEach(const std::function<void(int64_t operations)>& batch);

// The same for an operation that takes no argument.
template <typename Operation>
double nanosecondsFor(const Operation& operation) {
    return nanosecondsEach([&operation](int64_t operations) {
        for (; operations > 0; --operations) operation();
    });
}

}  // namespace bench
