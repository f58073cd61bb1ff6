// Any bytes as the kernel's records of changed files: what is read of them does not depend on what
// follows.

#include <vyn/logging.h>

#include <algorithm>
#include <vector>

#include "device/inotify_records.h"

namespace vyn {
namespace {

constexpr size_t kSmallestNamedRecord = 17;

void checkChanges(const std::vector<int>& changes, size_t size) {
    VYN_CHECK(changes.size() <= size / kSmallestNamedRecord);
    for (const int change : changes) {
        VYN_CHECK(change == 256 || change == 512 || change == 2 || change == -1) << change;
    }
}

// Copied, so that the place where the block ends is also where the memory does.
void checkCutAt(size_t end, const uint8_t* data, const std::vector<int>& whole) {
    const std::vector<uint8_t> block(data, data + end);
    const std::vector<int> changes = inotify::namedChanges(block.data(), end);
    VYN_CHECK(changes.size() <= whole.size());
    VYN_CHECK(std::equal(changes.begin(), changes.end(), whole.begin()));
}

}  // namespace
}  // namespace vyn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<int> changes = vyn::inotify::namedChanges(data, size);
    vyn::checkChanges(changes, size);
    const size_t step = size / 16 + 1;
    for (size_t end = 0; end < size; end += step) vyn::checkCutAt(end, data, changes);
    return 0;
}
