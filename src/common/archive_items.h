#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/little_endian.h"

namespace vyn {

// The items of an archive, in one block and in the form in which they are flattened: each one's
// length in 4 bytes, low byte first, and then its bytes. So flattening and reading are one copy
// each, and an item costs no allocation of its own.
class ArchiveItems {
  public:
    struct Item {
        const char* bytes;  // not null
        int size;           // as it was added: below 1 when there are no bytes
    };
    // What the length of an item takes.
    static constexpr int kLengthSize = 4;

    [[nodiscard]] bool empty() const { return mTaken == mSize; }
    // Also gives the memory back.
    void clear();

    void add(const void* bytes, int size) {
        if (bytes == nullptr) size = std::min(size, 0);
        if (recordSize(size) > mCapacity - mSize) return addInMoreRoom(bytes, size);
        char* const record = mBlock.get() + mSize;
        mSize += recordSize(size);
        little_endian::store(record, static_cast<uint32_t>(size));
        if (size > 0) copy(record + kLengthSize, bytes, static_cast<size_t>(size));
    }
    // Adds the items of records that are known to be whole.
    void addRecords(const char* records, size_t size);
    // Takes the first of at least one item once `use` has been called with it. Should that throw,
    // the item stays.
    template <typename Use>
    void takeFirst(Use use) {
        const Item item = itemAt(records());
        use(item);
        mTaken += recordSize(item.size);
        if (mTaken > kMostTaken && mTaken >= size()) giveBack();
    }

    // All items as records, for which the pointer may be null when there are none.
    [[nodiscard]] const char* records() const { return mBlock.get() + mTaken; }
    [[nodiscard]] size_t size() const { return mSize - mTaken; }
    // The bytes of memory that are held.
    [[nodiscard]] size_t capacity() const { return mCapacity; }
    // The item at the start of records that are whole, and what an item takes up among them.
    [[nodiscard]] static Item itemAt(const char* records) {
        return {records + kLengthSize, static_cast<int32_t>(little_endian::load(records))};
    }
    [[nodiscard]] static size_t recordSize(int itemSize) {
        return kLengthSize + static_cast<size_t>(std::max(itemSize, 0));
    }

  private:
    struct Free {
        void operator()(char* block) const { std::free(block); }
    };
    // What is taken keeps no more memory than this and what is left do.
    static constexpr size_t kMostTaken = 64 * 1024;

    // As memcpy(), whose call would take longer than the copying of what most items are: numbers
    // and short texts. Two pieces of a fixed size do, which may overlap.
    static void copy(char* to, const void* from, size_t size) {
        if (size < 8 || size > 32) {
            std::memcpy(to, from, size);
        } else if (size < 16) {
            copyTwice<8>(to, from, size);
        } else {
            copyTwice<16>(to, from, size);
        }
    }
    template <size_t Piece>
    static void copyTwice(char* to, const void* from, size_t size) {
        std::memcpy(to, from, Piece);
        std::memcpy(to + size - Piece, static_cast<const char*>(from) + size - Piece, Piece);
    }

    // What add() does seldom, for which it then need save no registers.
    void addInMoreRoom(const void* bytes, int size);
    void makeRoom(size_t size);
    void giveBack();
    void dropTaken();
    [[nodiscard]] bool resize(size_t capacity);

    // Of malloc(), since blocks grow where they are more often than not.
    std::unique_ptr<char, Free> mBlock;
    size_t mCapacity = 0;
    size_t mSize = 0;   // of the block, the bytes in use
    size_t mTaken = 0;  // the bytes of the records in front that are not items any more
};

}  // namespace vyn
