// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <vyn/archive_room.h>

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

    // The room behind the items grows with the block; what is added to it is an item, too.
    explicit ArchiveItems(detail::ArchiveRoom& room) : mRoom(room) {}
    ~ArchiveItems() { clear(); }
    ArchiveItems(const ArchiveItems&) = delete;
    ArchiveItems& operator=(const ArchiveItems&) = delete;

    [[nodiscard]] bool empty() const { return mFirst == mRoom.begin; }
    // Also gives the memory back.
    void clear();

    void add(const void* bytes, int size);
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
    [[nodiscard]] size_t size() const { return static_cast<size_t>(mRoom.begin - mFirst); }
    // The bytes of memory that are held.
    [[nodiscard]] size_t capacity() const { return static_cast<size_t>(mRoom.end - mBlock); }
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

    void makeRoom(size_t size);
    void giveBack();
    void dropTaken();
    [[nodiscard]] size_t room() const { return static_cast<size_t>(mRoom.end - mRoom.begin); }
    [[nodiscard]] size_t taken() const { return static_cast<size_t>(mFirst - mBlock); }
    [[nodiscard]] bool resize(size_t capacity);

    // Owned, and of malloc(), since blocks grow where they are more often than not.
    char* mBlock = nullptr;
    char* mFirst = nullptr;      // behind the records in front that are not items any more
    detail::ArchiveRoom& mRoom;  // from behind the last record to the end of the block
};

}  // namespace vyn
