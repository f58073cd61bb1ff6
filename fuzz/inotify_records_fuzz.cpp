// Any bytes as the kernel's records of changed files.

#include "cuts.h"
#include "device/inotify_records.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kSmallestNamedRecord = 17;
    const std::vector<int> changes = vyn::inotify::namedChanges(data, size);
    VYN_CHECK(changes.size() <= size / kSmallestNamedRecord);
    for (const int change : changes) {
        VYN_CHECK(change == 256 || change == 512 || change == 2 || change == -1) << change;
    }
    checkCuts(vyn::inotify::namedChanges, data, size);
    return 0;
}
