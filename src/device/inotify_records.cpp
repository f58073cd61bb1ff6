// SPDX-License-Identifier: Apache-2.0

#include "device/inotify_records.h"

#include <sys/inotify.h>
#include <vyn/logging.h>

#include <cstring>

namespace vyn::inotify {

namespace {

constexpr size_t kHeaderSize = sizeof(inotify_event);
static_assert(kHeaderSize == 16);

}  // namespace

int changeOf(uint32_t events) {
    for (const int known : {IN_CREATE, IN_DELETE, IN_MODIFY}) {
        if ((events & static_cast<uint32_t>(known)) != 0) return known;
    }
    return -1;
}

std::vector<Record> records(const void* data, size_t length) {
    std::vector<Record> result;
    const char* next = static_cast<const char*>(data);
    while (length >= kHeaderSize) {
        inotify_event event;
        std::memcpy(&event, next, kHeaderSize);
        length -= kHeaderSize;
        if (event.len > length) {
            VYN_LOG_ERROR << "inotify record with a name of " << event.len << " bytes, but only "
                          << length << " were read. the changes from there on are lost.";
            break;
        }
        const char* name = next + kHeaderSize;
        result.push_back({event.wd, event.mask, event.cookie, event.len != 0,
                          std::string(name, strnlen(name, event.len))});
        next += kHeaderSize + event.len;
        length -= event.len;
    }
    return result;
}

}  // namespace vyn::inotify
