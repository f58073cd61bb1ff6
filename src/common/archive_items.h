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
    [[nodiscard]] const char* records() const { return mRecords.data() + mTaken; }
    [[nodiscard]] size_t size() const { return mRecords.size() - mTaken; }
    // The bytes of memory that are held.
    [[nodiscard]] size_t capacity() const { return mRecords.capacity(); }
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

    std::vector<char> mRecords;
    size_t mTaken = 0;  // the bytes of the records in front that are not items any more
};

}  // namespace vyn
