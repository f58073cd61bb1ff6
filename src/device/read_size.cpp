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

// The size that was remembered for the device, which is forgotten; 0 when there is none.
int take(const Device& device) {
    if (sRemembered.load(std::memory_order_acquire) == 0) return 0;
    AutoLock lock(remembered().lock);
    auto& sizes = remembered().sizes;
    const auto found = sizes.find(&device);
    if (found == sizes.end()) return 0;
    const int size = found->second;
    sizes.erase(found);
    sRemembered.fetch_sub(1, std::memory_order_relaxed);
    return size;
}

struct Spare {
    size_t size = 0;
    std::unique_ptr<char[]> bytes;
};
thread_local Spare tSpare;
thread_local std::unique_ptr<UsualReadBuffer::Memory> tUsual;

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

UsualReadBuffer::UsualReadBuffer() : mMemory(std::move(tUsual)) {
    if (mMemory == nullptr) mMemory.reset(new (std::nothrow) Memory);
}

UsualReadBuffer::~UsualReadBuffer() {
    if (mMemory != nullptr) tUsual = std::move(mMemory);
}

void UsualReadBuffer::onRead(int count) {
    const int before = std::exchange(mMemory->used, count);
    if (before > count) std::memset(bytes() + count, 0, static_cast<size_t>(before - count));
}

}  // namespace vyn
