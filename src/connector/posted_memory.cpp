// SPDX-License-Identifier: Apache-2.0

#include <vyn/lock.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "connector/posted.h"

// Memory of what is posted.
//
// One thread makes what another one deletes soon after, which general allocators are slow at: they
// lock, or share lines of the cache, for each. So a thread that posts hands out the places of a
// block in a row, without a look at what becomes of them. A block is used again, or given back,
// when all of its places are free.

namespace vyn {

namespace {

constexpr size_t kBlockSize = 4096;
constexpr size_t kCacheLine = 64;
constexpr int kPlaces = static_cast<int>((kBlockSize - kCacheLine) / sizeof(Posted));

// Aligned, so that the address of a place tells its block.
struct alignas(kBlockSize) Block {
    std::atomic<int> taken{kPlaces};  // places in use, or not handed out yet
    alignas(kCacheLine) unsigned char places[kPlaces][sizeof(Posted)];

    static Block* of(void* place) {
        return reinterpret_cast<Block*>(reinterpret_cast<uintptr_t>(place) & ~(kBlockSize - 1));
    }
    void release(int count);
};
static_assert(sizeof(Block) == kBlockSize);

// Blocks that wait to be used again; those of a large burst are given back.
class Spares {
  public:
    // Never destroyed: threads may still post when the process exits.
    static Spares& instance() {
        static auto* const spares = new Spares();
        return *spares;
    }

    // Null when there is none.
    Block* take() {
        AutoLock lock(mLock);
        return mCount == 0 ? nullptr : mBlocks[--mCount];
    }
    // Returns false when there are enough.
    bool keep(Block* block) {
        AutoLock lock(mLock);
        if (mCount == kMost) return false;
        mBlocks[mCount++] = block;
        return true;
    }

  private:
    static constexpr int kMost = 32;
    Lock mLock;
    int mCount VYN_GUARDED_BY(mLock) = 0;
    Block* mBlocks[kMost] VYN_GUARDED_BY(mLock);
};

void Block::release(int count) {
    if (taken.fetch_sub(count, std::memory_order_acq_rel) != count) return;
    taken.store(kPlaces, std::memory_order_relaxed);
    if (!Spares::instance().keep(this)) delete this;
}

// What the calling thread hands out next. Has no destructor, which every use would have to look
// for.
struct Supply {
    Block* block = nullptr;
    int next = kPlaces;
};
thread_local Supply tSupply;

// Gives back what the thread has not handed out. What it posts even later has a block of its own.
struct ThreadEnd {
    ~ThreadEnd() {
        if (tSupply.next < kPlaces) tSupply.block->release(kPlaces - tSupply.next);
        tSupply.next = kPlaces;
    }
};

void refill() {
    static thread_local ThreadEnd end;
    static_cast<void>(end);
    Block* const spare = Spares::instance().take();
    tSupply.block = spare != nullptr ? spare : new Block;
    tSupply.next = 0;
}

}  // namespace

void* Posted::operator new(size_t) {
    Supply& supply = tSupply;
    if (supply.next == kPlaces) refill();
    return supply.block->places[supply.next++];
}

void Posted::operator delete(void* place) noexcept { Block::of(place)->release(1); }

}  // namespace vyn
