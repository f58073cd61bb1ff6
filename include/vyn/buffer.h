// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include <vyn/export.h>

namespace vyn {

// An owned array of bytes: one heap block, exactly as large as its content. There is no spare
// capacity, so everything that grows a buffer allocates once and copies once; a buffer is meant
// for messages, not for gathering megabytes byte by byte.
//
// ASSIGNMENT MOVES. `a = b` takes b's block and leaves b EMPTY, although b is passed as const; no
// bytes are copied. So do `a = &b` and a.move(b). Copies are made by the copy constructor and by
// copy():
//
//     Buffer a = b;  // a copy, b keeps its bytes
//     a = b;         // b is empty now
//     a.copy(b);     // a copy
//
// Strings are kept with their terminating NUL: a buffer made from "ab" has 3 bytes, appending "c"
// to it gives the 5 bytes a b NUL c NUL.
//
// Bytes given to an operation may lie in the buffer itself. A null source counts as one without
// bytes. When memory does not suffice, or the content would exceed INT_MAX bytes, std::bad_alloc
// is thrown and the buffer is as it was.
//
// So it is with containers: a std::vector of buffers that is assigned to another leaves empty
// buffers behind, while a copy that is made of it by its constructor is one.
//
// Not synchronised: one thread at a time.
class VYN_API Buffer {
  public:
    // Empty.
    Buffer();
    // A copy of the n bytes at `bytes`. For n < 1 there are no bytes, yet `size` is n.
    Buffer(const void* bytes, int n);
    // n bytes of `fill`. For n < 1 there are no bytes, yet `size` is n.
    Buffer(int n, char fill);
    // The text and its NUL.
    explicit Buffer(const std::string& text);
    explicit Buffer(const char* text);
    // A copy of bytes and words.
    Buffer(const Buffer& other);
    // As move().
    Buffer(Buffer&& other) noexcept;
    ~Buffer();

    // THESE MOVE, ALSO FROM A CONST BUFFER, which is empty afterwards; see above. A buffer assigned
    // to itself ends up empty. The words travel along and also stay with the source. move() returns
    // 0.
    Buffer& operator=(const Buffer& other) noexcept;
    Buffer& operator=(const Buffer* other) noexcept;
    int move(const Buffer& other) noexcept;

    // Replace the content; sizes as for the constructors.
    void assign(const void* bytes, int n);
    void assign(int n, char fill);
    void assign(const char* text);
    void assign(const std::string& text);
    // Also copies the words.
    void copy(const Buffer& other);
    // Two characters make a byte; an odd last character is ignored. Each pair is read as
    // scanf("%02X") reads the text from there on: lower-case digits and a sign are understood,
    // leading blanks are skipped (which brings later characters into reach), and what is no number
    // gives 0.
    void fromHexString(const std::string& hex);

    // Add behind the content. Without a source, or for n < 1, nothing happens.
    void append(const void* bytes, int n);
    void append(const Buffer& other);
    void append(const char* text);
    void append(const std::string& text);
    void append(char byte);

    // Insert in front of the byte at `position`, which is brought into the range 0 to `size`.
    // Without a source, or for n < 1, nothing happens.
    void insert_before(int position, const void* bytes, int n);
    void insert_before(int position, const Buffer& other);
    void insert_before(int position, const char* text);
    void insert_before(int position, const std::string& text);
    void insert_before(int position, char byte);

    // Removes the first n bytes, in place: nothing is allocated, and no memory is given back until
    // the last byte goes. For n < 1 nothing happens.
    void erase_before(int n);

    // True when there is no block. A buffer made from "" has one, with the NUL.
    [[nodiscard]] bool isEmpty() const { return data == nullptr; }

    // The bytes in front of the first NUL; all of them when there is none.
    [[nodiscard]] int str_length();
    [[nodiscard]] int str_length() const;

    // The text up to the first NUL. Appends a NUL first when the content does not end in one; of a
    // constant buffer all bytes are the text then.
    [[nodiscard]] std::string std_string();
    [[nodiscard]] std::string std_string() const;

    // All bytes, NULs too; good until the buffer is changed.
    [[nodiscard]] std::string_view bytes() const noexcept;

    // True when the content is `text` and its NUL; compared up to the first NUL.
    [[nodiscard]] bool operator==(const std::string& text) const;
    [[nodiscard]] bool operator!=(const std::string& text) const { return !(*this == text); }

    // By the bytes, as std::string_view compares them; the words do not count.
    [[nodiscard]] bool operator==(const Buffer& other) const { return bytes() == other.bytes(); }
    [[nodiscard]] bool operator!=(const Buffer& other) const { return bytes() != other.bytes(); }
    [[nodiscard]] bool operator<(const Buffer& other) const { return bytes() < other.bytes(); }

    // A negative index counts from the end: -1 is the last byte. An index outside -size to size-1
    // is fatal. Should the process live on all the same (logging::setAborter), at() returns the
    // reference such an index leads to, WHICH IS OUTSIDE THE BLOCK: do not use it. The const
    // operator returns 0 then.
    [[nodiscard]] char& at(int index);
    [[nodiscard]] char& operator[](int index);
    [[nodiscard]] char operator[](int index) const;

    // The first index at or behind `start` whose byte occurs in `chars`, or -1. A NUL byte in the
    // buffer always counts as found. `start` is not negative.
    [[nodiscard]] int find_first_of(const std::string& chars, int start) const;

    // Two upper-case digits for each byte.
    [[nodiscard]] std::string toHexString() const;

    // Not used by any operation but copied with the content; zero at first.
    std::array<int32_t, 3> words{};
    // The number of bytes, and the block (new[], owned), which is null when there are none. Mutable
    // because assignment empties its const source.
    mutable int size = 0;
    mutable char* data = nullptr;

  private:
    [[nodiscard]] int heldBytes() const noexcept;
    void adopt(char* block, int blockSize) noexcept;
};

// Writes "Buffer(5 bytes): {ab 00 0ac}": printable bytes as they are, others as a blank and two
// hexadecimal digits; "NULL" for a buffer of size 0. After 16 bytes "..." follows instead of the
// rest, unless config::debug::DEBUG_BUF() is on. Bytes in hexadecimal leave the stream's base at
// hexadecimal.
VYN_API std::ostream& operator<<(std::ostream& stream, const Buffer& buffer);

// Logs a block at verbose level, a record for every 16 bytes, each with its address, its bytes in
// hexadecimal and as characters. Zeros are shortened to one record where at least 49 follow each
// other from the start of a line. `file`, `func` and `line` are the source position shown and not
// null. The tag is not used: the records' tag is always "tag". Any thread.
VYN_API void dump(const void* data, int len, const char* file, const char* func, int line,
                  const char* tag);

}  // namespace vyn
