// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vyn::inotify {

// One of the kernel's records.
struct Record {
    int watch;
    uint32_t events;
    uint32_t cookie;
    bool named;
    std::string name;

    bool operator==(const Record& other) const {
        return watch == other.watch && events == other.events && cookie == other.cookie &&
               named == other.named && name == other.name;
    }
};

// The records in a block. Reading ends at one that reaches beyond the block, with an error line.
std::vector<Record> records(const void* data, size_t length);

// 256 for a created, 512 for a deleted, 2 for a modified file, -1 for anything else.
int changeOf(uint32_t events);

}  // namespace vyn::inotify
