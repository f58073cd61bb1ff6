// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

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

    ArchiveItems() = default;
    ~ArchiveItems() { clear(); }
    ArchiveItems(const ArchiveItems&) = delete;
    ArchiveItems& operator=(const ArchiveItems&) = delete;

    [[nodiscard]] bool empty() const { return mFirst == mEnd; }
    // Also gives the memory back.
    void clear();

    // Most items are numbers and short texts, for which memcpy() would take longer to be called
    // than to copy: two pieces of a fixed size do, which may overlap. What takes most of the time
    // then is memory that is not at hand when it is written to, so it is asked for beforehand.
    void add(const void* bytes, int size) {
        if (size < 8 || size > kShort || bytes == nullptr || room() < kAhead) {
            return addAny(bytes, size);
        }
        char* const record = mEnd;
        __builtin_prefetch(record + kAhead, 1);
        mEnd = record + kLengthSize + size;
        little_endian::store(record, static_cast<uint32_t>(size));
        if (size < 16) {
            copyTwice<8>(record + kLengthSize, bytes, size);
        } else {
            copyTwice<16>(record + kLengthSize, bytes, size);
        }
    }
    // Adds the items of records that are known to be whole.
    void addRecords(const char* records, size_t size);
    // Takes the first of at least one item once `use` has been called with it. Should that throw,
    // the item stays.
    template <typename Use>
    void takeFirst(Use use) {
        const Item item = itemAt(records());
        use(item);
        mFirst += recordSize(item.size);
        if (taken() > kMostTaken && taken() >= size()) giveBack();
    }

    // All items as records, for which the pointer may be null when there are none.
    [[nodiscard]] const char* records() const { return mFirst; }
    [[nodiscard]] size_t size() const { return static_cast<size_t>(mEnd - mFirst); }
    // The bytes of memory that are held.
    [[nodiscard]] size_t capacity() const { return static_cast<size_t>(mLimit - mBlock); }
    // The item at the start of records that are whole, and what an item takes up among them.
    [[nodiscard]] static Item itemAt(const char* records) {
        return {records + kLengthSize, static_cast<int32_t>(little_endian::load(records))};
    }
    [[nodiscard]] static size_t recordSize(int itemSize) {
        return kLengthSize + static_cast<size_t>(std::max(itemSize, 0));
    }

  private:
    // What is taken keeps no more memory than this and what is left do.
    static constexpr size_t kMostTaken = 64 * 1024;
    static constexpr int kShort = 32;
    // More than a short item takes, and few of them.
    static constexpr size_t kAhead = 256;

    template <int Piece>
    static void copyTwice(char* to, const void* from, int size) {
        std::memcpy(to, from, Piece);
        std::memcpy(to + size - Piece, static_cast<const char*>(from) + size - Piece, Piece);
    }

    // Inside of add(), this would make it save registers each time.
    [[gnu::noinline]] void addAny(const void* bytes, int size);
    void makeRoom(size_t size);
    void giveBack();
    void dropTaken();
    [[nodiscard]] size_t room() const { return static_cast<size_t>(mLimit - mEnd); }
    [[nodiscard]] size_t taken() const { return static_cast<size_t>(mFirst - mBlock); }
    [[nodiscard]] bool resize(size_t capacity);

    // Owned, and of malloc(), since blocks grow where they are more often than not.
    char* mBlock = nullptr;
    char* mFirst = nullptr;  // behind the records in front that are not items any more
    char* mEnd = nullptr;    // behind the last record
    char* mLimit = nullptr;  // behind the block
};

}  // namespace vyn
