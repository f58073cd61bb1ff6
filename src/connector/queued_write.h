// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/worker.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace vyn {

// A peer for which more writes wait than this does not read.
constexpr int kMostPendingWrites = 100;

// A write in a worker's queue, in one block with its bytes.
struct QueuedWrite : WriteNode {
    // With room for so many bytes. Null when there is no memory.
    static QueuedWrite* create(int room) {
        void* const block = std::malloc(sizeof(QueuedWrite) + static_cast<size_t>(room));
        return block == nullptr ? nullptr : new (block) QueuedWrite(room);
    }
    static QueuedWrite* create(const void* bytes, int length) {
        QueuedWrite* const write = create(length > 0 ? length : 0);
        if (write != nullptr && length > 0) write->add(bytes, length);
        return write;
    }
    // The same write, or a new one for null, with room for so many bytes in all. Null when there is
    // no memory; then the write is as it was.
    static QueuedWrite* enlarge(QueuedWrite* write, int room) {
        if (write == nullptr) return create(room);
        void* const block = std::realloc(static_cast<void*>(write),
                                         sizeof(QueuedWrite) + static_cast<size_t>(room));
        if (block == nullptr) return nullptr;
        auto* const larger = static_cast<QueuedWrite*>(block);
        larger->data = larger + 1;
        larger->mCapacity = room;
        return larger;
    }
    static void destroy(QueuedWrite* write) { std::free(write); }

    // There must be room.
    void add(const void* bytes, int length) {
        std::memcpy(static_cast<char*>(data) + size, bytes, static_cast<size_t>(length));
        size += length;
    }
    int room() const { return mCapacity - size; }
    int remaining() const { return size - offset; }
    char* rest() const { return static_cast<char*>(data) + offset; }

    QueuedWrite* next = nullptr;
    // No other packet may go before this one: a part of its packet has been written, or it is a
    // self call's.
    bool first = false;

  private:
    explicit QueuedWrite(int room) : WriteNode{this + 1, 0, 0}, mCapacity(room) {}

    int mCapacity;
};

// Bytes that are to go with what is queued, but are not copied for that.
struct WriteTail {
    const void* data;
    int len;
    int taken = 0;
    bool isLost = false;  // a datagram that can never be sent; it counts as taken
};

}  // namespace vyn
