// SPDX-License-Identifier: Apache-2.0

#include <vyn/lock.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "connector/posted.h"

// Memory of what is posted.
//
// One thread makes what another one deletes soon after, which general allocators are slow at: they
// lock, or share lines of the cache, for each. So a thread that posts hands out the places of a
// block in a row, without a look at what becomes of them, and a thread that deletes counts those of
// one block before it gives them back together. A block is used again, or given back, when all of
// its places are free.

namespace vyn {

namespace {

// Blocks are aligned, so that the address of a place tells its block, and leave a line for what
// the allocator notes, which could not put one block right behind the other without.
constexpr size_t kAlignment = 4096;
constexpr size_t kCacheLine = 64;
constexpr int kPlaces = static_cast<int>((kAlignment - 2 * kCacheLine) / sizeof(Posted));

struct Block {
    std::atomic<int> taken{kPlaces};  // places in use, or not handed out yet
    alignas(kCacheLine) unsigned char places[kPlaces][sizeof(Posted)];

    static Block* of(void* place) {
        return reinterpret_cast<Block*>(reinterpret_cast<uintptr_t>(place) & ~(kAlignment - 1));
    }
    static Block* make();
    void release(int count);
};
static_assert(sizeof(Block) == kAlignment - kCacheLine);

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

Block* Block::make() {
    void* memory = nullptr;
    if (posix_memalign(&memory, kAlignment, sizeof(Block)) != 0) throw std::bad_alloc();
    return new (memory) Block;
}

void Block::release(int count) {
    if (taken.fetch_sub(count, std::memory_order_acq_rel) != count) return;
    taken.store(kPlaces, std::memory_order_relaxed);
    if (!Spares::instance().keep(this)) std::free(this);
}

// What the calling thread hands out next. Has no destructor, which every use would have to look
// for.
struct Supply {
    Block* block = nullptr;
    int next = kPlaces;
};
thread_local Supply tSupply;

// What the calling thread has deleted of one block, which does not know yet.
struct Returns {
    Block* block = nullptr;
    int count = 0;

    void add(Block* from);
    void giveBack() {
        if (count > 0) block->release(std::exchange(count, 0));
    }
};
thread_local Returns tReturns;
thread_local bool tIsEnding = false;

// Gives back what the thread has not handed out, and what it has deleted. What it posts even later
// has a block of its own, and what it deletes is given back at once.
struct ThreadEnd {
    ~ThreadEnd() {
        if (tSupply.next < kPlaces) tSupply.block->release(kPlaces - tSupply.next);
        tSupply.next = kPlaces;
        tReturns.giveBack();
        tIsEnding = true;
    }
};

void awaitThreadEnd() {
    static thread_local ThreadEnd end;
    static_cast<void>(end);
}

void Returns::add(Block* from) {
    if (from != block) {
        awaitThreadEnd();
        giveBack();
        block = from;
    }
    ++count;
    if (tIsEnding) giveBack();
}

void refill() {
    awaitThreadEnd();
    Block* const spare = Spares::instance().take();
    tSupply.block = spare != nullptr ? spare : Block::make();
    tSupply.next = 0;
}

}  // namespace

void* Posted::operator new(size_t) {
    Supply& supply = tSupply;
    if (supply.next == kPlaces) refill();
    return supply.block->places[supply.next++];
}

void Posted::operator delete(void* place) noexcept { tReturns.add(Block::of(place)); }

}  // namespace vyn
