#include "device/inotify_records.h"

#include <sys/inotify.h>
#include <vyn/logging.h>

#include <cstring>

namespace vyn::inotify {

namespace {

constexpr size_t kHeaderSize = sizeof(inotify_event);
static_assert(kHeaderSize == 16);

int changeOf(uint32_t mask) {
    for (const int known : {IN_CREATE, IN_DELETE, IN_MODIFY}) {
        if ((mask & static_cast<uint32_t>(known)) != 0) return known;
    }
    return -1;
}

}  // namespace

std::vector<int> namedChanges(const void* data, size_t length) {
    std::vector<int> changes;
    const char* next = static_cast<const char*>(data);
    while (length > kHeaderSize) {
        inotify_event event;
        std::memcpy(&event, next, kHeaderSize);
        length -= kHeaderSize;
        if (event.len > length) {
            VYN_LOG_ERROR << "inotify record with a name of " << event.len << " bytes, but only "
                          << length << " were read. the changes from there on are lost.";
            break;
        }
        if (event.len != 0) changes.push_back(changeOf(event.mask));
        next += kHeaderSize + event.len;
        length -= event.len;
    }
    return changes;
}

}  // namespace vyn::inotify
