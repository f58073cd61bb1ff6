#pragma once

#include <cstddef>
#include <vector>

namespace vyn::inotify {

// What the kernel's inotify records in a block tell about named files, in their order: 256 for a
// created, 512 for a deleted, 2 for a modified file, -1 for anything else. Records without a name
// are passed over. Reading ends at a record that reaches beyond the block, with an error line, and
// where fewer than 17 bytes are left.
std::vector<int> namedChanges(const void* data, size_t length);

}  // namespace vyn::inotify
