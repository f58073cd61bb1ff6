#pragma once

#include <vyn/worker.h>

#include <string>
#include <vector>

namespace vyn::testing {

// A worker that keeps the bytes of its device, chunk by chunk, and answers with nothing.
class ReceivedWorker : public Worker {
  public:
    explicit ReceivedWorker(Device* device) : Worker(device, nullptr) {}

    bool handledBeforeParser(const void* data, int len) override {
        chunks.emplace_back(static_cast<const char*>(data), static_cast<size_t>(len));
        return true;
    }

    std::vector<std::string> chunks;
};

}  // namespace vyn::testing
