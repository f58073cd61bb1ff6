#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

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

    [[nodiscard]] bool empty() const { return mTaken == mRecords.size(); }
    // Also gives the memory back.
    void clear();

    void add(const void* bytes, int size);
    // Adds the items of records that are known to be whole.
    void addRecords(const char* records, size_t size);
    // Takes the first of at least one item. Its bytes stay until something is added or cleared.
    Item takeFirst() {
        const Item item = itemAt(records());
        mTaken += recordSize(item.size);
        return item;
    }

    // All items as records, for which the pointer may be null when there are none.
    [[nodiscard]] const char* records() const { return mRecords.data() + mTaken; }
    [[nodiscard]] size_t size() const { return mRecords.size() - mTaken; }
    // The item at the start of records that are whole, and what an item takes up among them.
    [[nodiscard]] static Item itemAt(const char* records) {
        return {records + kLengthSize, static_cast<int32_t>(little_endian::load(records))};
    }
    [[nodiscard]] static size_t recordSize(int itemSize) {
        return kLengthSize + static_cast<size_t>(std::max(itemSize, 0));
    }

  private:
    void makeRoom(size_t size);

    std::vector<char> mRecords;
    size_t mTaken = 0;  // the bytes of the records in front that are not items any more
};

}  // namespace vyn
