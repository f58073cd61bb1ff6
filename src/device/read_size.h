// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <memory>

namespace vyn {

class Device;
class Worker;

// The read sizes of devices. They are kept by the device's worker, and until there is one on a list
// of the process, so that those that read as usual need no memory for it.

// 0 for the usual size.
int readSizeOf(const Device& device, Worker* worker);
void rememberReadSize(const Device& device, int bytes);
// For a device that ends.
void forgetReadSize(const Device& device);

// Memory to read into. Belongs to the thread, which keeps it for its next read; a read inside a
// read gets its own. Null when there is none.
class ReadBuffer {
  public:
    explicit ReadBuffer(size_t size);
    ~ReadBuffer();
    ReadBuffer(const ReadBuffer&) = delete;
    ReadBuffer& operator=(const ReadBuffer&) = delete;

    char* bytes() { return mBytes.get(); }

  private:
    size_t mSize;
    std::unique_ptr<char[]> mBytes;
};

// The same for reads of the usual size into zeros. What one read has left is cleared as far as the
// next one does not reach, so this is for devices that look at nothing but what they read. Belongs
// to the thread, too.
class UsualReadBuffer {
  public:
    static constexpr int kSize = 2048;

    UsualReadBuffer();
    ~UsualReadBuffer();
    UsualReadBuffer(const UsualReadBuffer&) = delete;
    UsualReadBuffer& operator=(const UsualReadBuffer&) = delete;

    // Null when there is no memory.
    char* bytes() { return mMemory == nullptr ? nullptr : mMemory->bytes; }
    // So many were read.
    void onRead(int count);

    struct Memory {
        int used = 0;  // behind these are zeros
        char bytes[kSize] = {};
    };

  private:
    Memory* mMemory;
};

}  // namespace vyn
