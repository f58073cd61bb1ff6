#include "common/archive_items.h"

#include <new>

namespace vyn {

void ArchiveItems::clear() {
    mBlock.reset();
    mCapacity = mSize = mTaken = 0;
}

void ArchiveItems::addInMoreRoom(const void* bytes, int size) {
    makeRoom(recordSize(size));
    add(bytes, size);
}

void ArchiveItems::addRecords(const char* records, size_t size) {
    if (size == 0) return;
    makeRoom(size);
    std::memcpy(mBlock.get() + mSize, records, size);
    mSize += size;
}

// As what is left is no more than what was taken, taking all items one by one moves no byte more
// often than once on average.
void ArchiveItems::giveBack() {
    if (empty()) return clear();
    dropTaken();
    // Where the block cannot be made smaller, its memory goes with the archive.
    static_cast<void>(resize(mSize));
}

// What was taken goes once it is no less than what is left, so that a queue that is never empty
// does not grow for ever, and no more bytes are ever moved than were taken.
void ArchiveItems::makeRoom(size_t size) {
    constexpr size_t kLeast = 1024;
    constexpr size_t kMuch = 64 * 1024;
    if (mTaken > 0 && mTaken >= this->size()) dropTaken();
    if (size <= mCapacity - mSize) return;
    const size_t needed = mSize + size;
    // What is more than the memory there is may still do without a reserve.
    const size_t more = mCapacity * (mCapacity < kMuch ? 4 : 2);
    if (!resize(std::max({needed, more, kLeast})) && !resize(needed)) throw std::bad_alloc();
}

void ArchiveItems::dropTaken() {
    mSize -= mTaken;
    std::memmove(mBlock.get(), mBlock.get() + mTaken, mSize);
    mTaken = 0;
}

// False, with the block as it was, when there is no memory.
bool ArchiveItems::resize(size_t capacity) {
    void* const block = std::realloc(mBlock.get(), capacity);
    if (block == nullptr) return false;
    static_cast<void>(mBlock.release());
    mBlock.reset(static_cast<char*>(block));
    mCapacity = capacity;
    return true;
}

}  // namespace vyn
