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
    // Null when there is no memory.
    static QueuedWrite* create(const void* bytes, int length) {
        const size_t size = length > 0 ? static_cast<size_t>(length) : 0;
        void* const block = std::malloc(sizeof(QueuedWrite) + size);
        if (block == nullptr) return nullptr;
        auto* write = new (block) QueuedWrite;
        write->data = write + 1;
        write->size = static_cast<int>(size);
        if (size > 0) std::memcpy(write->data, bytes, size);
        return write;
    }
    static void destroy(QueuedWrite* write) { std::free(write); }

    int remaining() const { return size - offset; }
    char* rest() const { return static_cast<char*>(data) + offset; }

    QueuedWrite* next = nullptr;
    // No other packet may go before this one: a part of its packet has been written, or it is a
    // self call's.
    bool first = false;

  private:
    QueuedWrite() : WriteNode{nullptr, 0, 0} {}
};

}  // namespace vyn
