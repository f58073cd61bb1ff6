// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <string>
#include <type_traits>

#include <vyn/archive_room.h>
#include <vyn/buffer.h>
#include <vyn/export.h>

namespace vyn {

class ArchiveItems;

// A queue of byte items that can be flattened into one block and rebuilt from it. Writer and
// reader agree on the order and meaning of the items; the block names neither.
//
// The block is a plain sequence of records, each the item's length in 4 bytes (signed, low byte
// first) and then its bytes:
//
//     archive << std::string("ab") << Buffer("\1\2\3", 3);
//     // copyTo(): 03 00 00 00 61 62 00  03 00 00 00 01 02 03
//
// Strings are items with their terminating NUL. AN EMPTY LAST ITEM IS LOST ON READING: a record is
// read only while at least 5 bytes are left. An empty item in front of another comes back.
//
// Items are copied in and owned by the archive, all in one block of memory. What was taken is given
// back by and by; of it the archive keeps no more than 64 KiB and what the items left in it take.
// clear() and the destructor give everything back. Not synchronised: one thread at a time.
class VYN_API Archive {
  public:
    // Empty.
    Archive();
    // As putSerializeData() on an empty archive.
    Archive(const void* data, int len);
    ~Archive();
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    // Drops all items.
    void clear();
    // True without an item.
    [[nodiscard]] bool empty() const;

    // Append an item. Without a source it has no bytes. A negative `n` makes an item without bytes
    // whose length, as it is written, ends the reading of the block.
    void put(const void* bytes, int n) {
        if (!mRoom.add(bytes, n)) putAny(bytes, n);
    }
    Archive& operator<<(const std::string& text);
    Archive& operator<<(const char* text);  // null makes an item without bytes
    Archive& operator<<(const Buffer& buffer);
    // Numbers and null pointers have no form of their own: put their bytes or their text.
    template <typename Other,
              std::enable_if_t<std::is_arithmetic_v<Other> || std::is_enum_v<Other> ||
                                   std::is_null_pointer_v<Other>,
                               int> = 0>
    Archive& operator<<(Other) = delete;

    // Appends the items of a block. The block may come from anywhere: a record with a negative
    // length, or one that does not lie inside the block, ends the reading with one error line. The
    // items in front of it stay, and nothing outside the block is read. A null block has no items.
    // True when there was no such record.
    bool putSerializeData(const void* data, int len);

    // False once a block was not read to its end, until clear().
    [[nodiscard]] bool ok() const;

    // Take the first item. Without one, nothing happens to the target.
    //
    // Copies at most n bytes; the bytes of the target behind the item's end keep what they held.
    // With a null target the item is dropped.
    void get(void* bytes, int n);
    void get(Buffer& buffer);
    Archive& operator>>(Buffer& buffer);
    // The item's bytes up to the first NUL. An item without bytes leaves `text` as it was.
    Archive& operator>>(std::string& text);

    // Flattens all items into `out`, in one allocation; the archive keeps them. An item of more
    // than 100 MiB is logged as abnormal, and written all the same. A block cannot exceed 2 GiB:
    // items of more together are an error line and an empty `out`.
    void copyTo(Buffer& out) const;

  private:
    void putAny(const void* bytes, int n);

    detail::ArchiveRoom mRoom;
    const std::unique_ptr<ArchiveItems> mItems;  // knows the room
    bool mOk = true;
};

// An object that saves itself into an archive and loads itself from one.
class VYN_API Serializer {
  public:
    virtual ~Serializer();

    // Puts this object's fields in a fixed order.
    virtual void serialize(Archive& archive) = 0;
    // Gets them in the same order. Fields that are missing at the end keep their values.
    virtual void deserialize(Archive& archive) = 0;

    // Replaces `out` with this object's fields as one block.
    void saveTo(Buffer& out);
    // Loads from such a block. Items that deserialize() leaves are dropped. False when the block
    // was damaged; what stood in front of the damage was loaded all the same.
    bool loadFrom(const Buffer& in);
};

}  // namespace vyn
