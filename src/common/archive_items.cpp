#include "common/archive_items.h"

#include <algorithm>
#include <new>

namespace vyn {

void ArchiveItems::clear() {
    std::vector<char>().swap(mRecords);
    mTaken = 0;
}

void ArchiveItems::add(const void* bytes, int size) {
    if (bytes == nullptr) size = std::min(size, 0);
    char length[kLengthSize];
    little_endian::store(length, static_cast<uint32_t>(size));
    makeRoom(recordSize(size));
    mRecords.insert(mRecords.end(), length, length + kLengthSize);
    const char* from = static_cast<const char*>(bytes);
    if (size > 0) mRecords.insert(mRecords.end(), from, from + size);
}

void ArchiveItems::addRecords(const char* records, size_t size) {
    if (size == 0) return;
    makeRoom(size);
    mRecords.insert(mRecords.end(), records, records + size);
}

// Moves what is left into a block of its own size. As it is no more than what was taken, taking all
// items one by one moves no byte more often than once on average.
void ArchiveItems::giveBack() {
    if (empty()) return clear();
    try {
        std::vector<char> left(records(), records() + size());
        mRecords.swap(left);
        mTaken = 0;
    } catch (const std::bad_alloc&) {
        // The memory goes with the archive.
    }
}

// Makes sure that so many bytes can be added without another allocation. What was taken goes once
// it is no less than what is left, so that a queue that is never empty does not grow for ever, and
// no more bytes are ever moved than were taken.
void ArchiveItems::makeRoom(size_t size) {
    if (mTaken > 0 && mTaken >= this->size()) {
        mRecords.erase(mRecords.begin(), mRecords.begin() + static_cast<std::ptrdiff_t>(mTaken));
        mTaken = 0;
    }
    const size_t needed = mRecords.size() + size;
    if (needed > mRecords.capacity()) {
        mRecords.reserve(std::max({needed, mRecords.capacity() * 3 / 2, size_t{256}}));
    }
}

}  // namespace vyn
