// SPDX-License-Identifier: Apache-2.0

#include "device/read_size.h"

#include <vyn/device.h>
#include <vyn/lock.h>
#include <vyn/worker.h>

#include <atomic>
#include <cstring>
#include <map>
#include <new>
#include <utility>

namespace vyn {

namespace {

std::atomic<int> sRemembered{0};

struct Remembered {
    Lock lock;
    std::map<const Device*, int> sizes VYN_GUARDED_BY(lock);
};

// Never destroyed: devices may outlive main().
Remembered& remembered() {
    static auto* const instance = new Remembered;
    return *instance;
}

[[gnu::noinline]] int takeFromList(const Device& device) {
    AutoLock lock(remembered().lock);
    auto& sizes = remembered().sizes;
    const auto found = sizes.find(&device);
    if (found == sizes.end()) return 0;
    const int size = found->second;
    sizes.erase(found);
    sRemembered.fetch_sub(1, std::memory_order_relaxed);
    return size;
}

// The size that was remembered for the device, which is forgotten; 0 when there is none.
int take(const Device& device) {
    return sRemembered.load(std::memory_order_acquire) == 0 ? 0 : takeFromList(device);
}

struct Spare {
    size_t size = 0;
    std::unique_ptr<char[]> bytes;
};
thread_local Spare tSpare;

// The thread's, while no read uses it. A plain pointer, as it is looked at for each read.
thread_local UsualReadBuffer::Memory* tUsual = nullptr;

struct EndOfUsual {
    ~EndOfUsual() { delete std::exchange(tUsual, nullptr); }
};

[[gnu::noinline]] UsualReadBuffer::Memory* newUsual() {
    thread_local const EndOfUsual end;
    static_cast<void>(end);
    return new (std::nothrow) UsualReadBuffer::Memory;
}

}  // namespace

int readSizeOf(const Device& device, Worker* worker) {
    if (worker == nullptr) return 0;
    const int remembered = take(device);
    if (remembered > 0) worker->setReadSize(remembered);
    return worker->readSize();
}

void rememberReadSize(const Device& device, int bytes) {
    AutoLock lock(remembered().lock);
    if (remembered().sizes.insert_or_assign(&device, bytes).second) {
        sRemembered.fetch_add(1, std::memory_order_release);
    }
}

void forgetReadSize(const Device& device) { take(device); }

ReadBuffer::ReadBuffer(size_t size) : mSize(size) {
    if (tSpare.size >= size) {
        mSize = std::exchange(tSpare.size, 0);
        mBytes = std::move(tSpare.bytes);
    } else {
        mBytes.reset(new (std::nothrow) char[size]);
    }
}

ReadBuffer::~ReadBuffer() {
    if (mBytes == nullptr || tSpare.size >= mSize) return;
    tSpare.size = mSize;
    tSpare.bytes = std::move(mBytes);
}

UsualReadBuffer::UsualReadBuffer() : mMemory(std::exchange(tUsual, nullptr)) {
    if (mMemory == nullptr) mMemory = newUsual();
}

UsualReadBuffer::~UsualReadBuffer() {
    if (tUsual == nullptr) {
        tUsual = mMemory;
    } else {
        delete mMemory;  // a read inside this one has left its own
    }
}

void UsualReadBuffer::onRead(int count) {
    const int before = std::exchange(mMemory->used, count);
    if (before > count) std::memset(bytes() + count, 0, static_cast<size_t>(before - count));
}

}  // namespace vyn
