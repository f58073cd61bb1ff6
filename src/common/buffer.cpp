// SPDX-License-Identifier: Apache-2.0

#include <vyn/buffer.h>
#include <vyn/logging.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "common/countable.h"

namespace vyn {

namespace {

constexpr char kFatalMark[] = "\033[1;31mFATAL: ";

int sizeWithNul(const std::string& text) { return countable(text.length() + 1); }

int sizeWithNul(const char* text) { return text == nullptr ? 0 : countable(std::strlen(text) + 1); }

// A new block with a copy, or null when there is nothing to copy.
char* duplicate(const void* bytes, int n) {
    if (bytes == nullptr || n < 1) return nullptr;
    char* block = new char[static_cast<size_t>(n)];
    std::memcpy(block, bytes, static_cast<size_t>(n));
    return block;
}

char* filled(int n, char fill) {
    if (n < 1) return nullptr;
    char* block = new char[static_cast<size_t>(n)];
    std::memset(block, fill, static_cast<size_t>(n));
    return block;
}

// The size of a buffer copied from there: a length below 1 is kept as it is.
int copiedSize(const void* bytes, int n) { return bytes == nullptr ? std::min(n, 0) : n; }

}  // namespace

Buffer::Buffer() = default;

Buffer::Buffer(const void* bytes, int n) : size(copiedSize(bytes, n)), data(duplicate(bytes, n)) {}

Buffer::Buffer(int n, char fill) : size(n), data(filled(n, fill)) {}

Buffer::Buffer(const std::string& text) : Buffer(text.c_str(), sizeWithNul(text)) {}

Buffer::Buffer(const char* text) : Buffer(text, sizeWithNul(text)) {}

Buffer::Buffer(const Buffer& other) : Buffer(other.data, other.size) { words = other.words; }

Buffer::Buffer(Buffer&& other) noexcept { move(other); }

Buffer::~Buffer() { adopt(nullptr, 0); }

Buffer& Buffer::operator=(const Buffer& other) noexcept {
    move(other);
    return *this;
}

Buffer& Buffer::operator=(const Buffer* other) noexcept {
    if (other != nullptr) move(*other);
    return *this;
}

int Buffer::move(const Buffer& other) noexcept {
    // Freed first, so that a buffer moved to itself takes over nothing.
    adopt(nullptr, 0);
    words = other.words;
    size = other.size;
    data = other.data;
    other.size = 0;
    other.data = nullptr;
    return 0;
}

void Buffer::assign(const void* bytes, int n) { adopt(duplicate(bytes, n), copiedSize(bytes, n)); }

void Buffer::assign(int n, char fill) { adopt(filled(n, fill), n); }

void Buffer::assign(const char* text) { assign(text, sizeWithNul(text)); }

void Buffer::assign(const std::string& text) { assign(text.c_str(), sizeWithNul(text)); }

void Buffer::copy(const Buffer& other) {
    assign(other.data, other.size);
    words = other.words;
}

void Buffer::append(const void* bytes, int n) { insert_before(INT_MAX, bytes, n); }

void Buffer::append(const Buffer& other) { append(other.data, other.size); }

void Buffer::append(const char* text) { append(text, sizeWithNul(text)); }

void Buffer::append(const std::string& text) { append(text.c_str(), sizeWithNul(text)); }

void Buffer::append(char byte) { append(&byte, 1); }

void Buffer::insert_before(int position, const void* bytes, int n) {
    if (bytes == nullptr || n < 1) return;
    const int held = heldBytes();
    const int grown = countable(static_cast<size_t>(held) + static_cast<size_t>(n));
    const int front = std::clamp(position, 0, held);

    char* block = new char[static_cast<size_t>(grown)];
    std::copy_n(data, front, block);
    std::copy_n(static_cast<const char*>(bytes), n, block + front);
    std::copy_n(data + front, held - front, block + front + n);
    adopt(block, grown);
}

void Buffer::insert_before(int position, const Buffer& other) {
    insert_before(position, other.data, other.size);
}

void Buffer::insert_before(int position, const char* text) {
    insert_before(position, text, sizeWithNul(text));
}

void Buffer::insert_before(int position, const std::string& text) {
    insert_before(position, text.c_str(), sizeWithNul(text));
}

void Buffer::insert_before(int position, char byte) { insert_before(position, &byte, 1); }

void Buffer::erase_before(int n) {
    if (n < 1) return;
    const int left = heldBytes() - n;
    if (left < 1) {
        adopt(nullptr, 0);
        return;
    }
    std::memmove(data, data + n, static_cast<size_t>(left));
    size = left;
}

char& Buffer::at(int index) {
    const int held = heldBytes();
    if (index < -held || index >= held) VYN_LOG_FATAL << kFatalMark << "invalid range.";
    return data[index < 0 ? index + held : index];
}

char& Buffer::operator[](int index) { return at(index); }

char Buffer::operator[](int index) const {
    const int held = heldBytes();
    if (index < -held || index >= held) {
        VYN_LOG_FATAL << kFatalMark << "array access violation, size = " << size
                      << ", access = " << index;
        return 0;
    }
    return data[index < 0 ? index + held : index];
}

// The fields are public: the size may be negative, or stand beside a null block.
int Buffer::heldBytes() const noexcept { return data == nullptr ? 0 : std::max(size, 0); }

// Takes over a block. The old one is freed only now, since the new one may be made from its bytes.
void Buffer::adopt(char* block, int blockSize) noexcept {
    delete[] data;
    data = block;
    size = blockSize;
}

}  // namespace vyn
