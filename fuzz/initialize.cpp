// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>

// Bad input is logged, and nearly all input is bad. Fatal lines are still written.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    logging::setLogLevel(0);
    return 0;
}
