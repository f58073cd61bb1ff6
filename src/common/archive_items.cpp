// SPDX-License-Identifier: Apache-2.0

#include "common/archive_items.h"

#include <new>

namespace vyn {

void ArchiveItems::clear() {
    std::free(mBlock);
    mBlock = mFirst = nullptr;
    mRoom = {};
}

void ArchiveItems::add(const void* bytes, int size) {
    if (bytes == nullptr) size = std::min(size, 0);
    makeRoom(recordSize(size));
    little_endian::store(mRoom.begin, static_cast<uint32_t>(size));
    if (size > 0) std::memcpy(mRoom.begin + kLengthSize, bytes, static_cast<size_t>(size));
    mRoom.begin += recordSize(size);
}

void ArchiveItems::addRecords(const char* records, size_t size) {
    if (size == 0) return;
    makeRoom(size);
    std::memcpy(mRoom.begin, records, size);
    mRoom.begin += size;
}

// As what is left is no more than what was taken, taking all items one by one moves no byte more
// often than once on average.
void ArchiveItems::giveBack() {
    if (empty()) return clear();
    dropTaken();
    // Where the block cannot be made smaller, its memory goes with the archive.
    static_cast<void>(resize(size()));
}

// What was taken goes once it is no less than what is left, so that a queue that is never empty
// does not grow for ever, and no more bytes are ever moved than were taken.
void ArchiveItems::makeRoom(size_t size) {
    constexpr size_t kLeast = 1024;
    constexpr size_t kMuch = 64 * 1024;
    if (size <= room()) return;
    if (taken() > 0 && taken() >= this->size()) dropTaken();
    if (size <= room()) return;
    const size_t needed = capacity() - room() + size;
    const size_t more = capacity() * (capacity() < kMuch ? 8 : 2);
    // What is more than the memory there is may still do without a reserve.
    if (!resize(std::max({needed, more, kLeast})) && !resize(needed)) throw std::bad_alloc();
}

void ArchiveItems::dropTaken() {
    const size_t left = size();
    std::memmove(mBlock, mFirst, left);
    mFirst = mBlock;
    mRoom.begin = mBlock + left;
}

// False, with the block as it was, when there is no memory.
bool ArchiveItems::resize(size_t capacity) {
    const size_t first = taken();
    const size_t end = first + size();
    char* const block = static_cast<char*>(std::realloc(mBlock, capacity));
    if (block == nullptr) return false;
    mBlock = block;
    mFirst = block + first;
    mRoom.begin = block + end;
    mRoom.end = block + capacity;
    return true;
}

}  // namespace vyn
