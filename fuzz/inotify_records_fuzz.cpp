// SPDX-License-Identifier: Apache-2.0

// Any bytes as the kernel's records of changed files.

#include "cuts.h"
#include "device/inotify_records.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kSmallestRecord = 16;
    VYN_CHECK(vyn::inotify::records(data, size).size() <= size / kSmallestRecord);
    checkCuts(vyn::inotify::records, data, size);
    return 0;
}
