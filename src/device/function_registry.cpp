// SPDX-License-Identifier: Apache-2.0

#include "device/function_registry.h"

#include <vyn/function_device.h>

namespace vyn {

// Never destroyed: devices may still be when the process exits.
FunctionRegistry& FunctionRegistry::instance() {
    static auto* const registry = new FunctionRegistry();
    return *registry;
}

void FunctionRegistry::listen(const std::string& name, FunctionDevice* device) {
    AutoLock lock(mLock);
    mListeners[name] = device;
}

FunctionDevice* FunctionRegistry::find(const std::string& name) {
    AutoLock lock(mLock);
    const auto found = mListeners.find(name);
    return found == mListeners.end() ? nullptr : found->second;
}

void FunctionRegistry::pair(FunctionDevice* one, FunctionDevice* other) {
    AutoLock lock(mLock);
    setPeer(one, other);
    setPeer(other, one);
}

void FunctionRegistry::disconnect(FunctionDevice* device) {
    AutoLock lock(mLock);
    for (auto each = mListeners.begin(); each != mListeners.end();) {
        each = each->second == device ? mListeners.erase(each) : std::next(each);
    }
    FunctionDevice* peer = setPeer(device, nullptr);
    if (peer != nullptr) setPeer(peer, nullptr);
}

void FunctionRegistry::forget(FunctionDevice* device) {
    AutoLock lock(mLock);
    for (auto writer = mWriters.find(device); writer != mWriters.end();
         writer = mWriters.find(device)) {
        setPeer(writer->second, nullptr);
    }
}

// Returns the peer so far.
FunctionDevice* FunctionRegistry::setPeer(FunctionDevice* device, FunctionDevice* peer) {
    if (peer != nullptr) mWriters.emplace(peer, device);  // first, as it needs memory
    FunctionDevice* former = device->setPeer(peer);
    if (former != nullptr) dropWriter(former, device);
    return former;
}

void FunctionRegistry::dropWriter(FunctionDevice* device, FunctionDevice* writer) {
    const auto [first, last] = mWriters.equal_range(device);
    for (auto each = first; each != last; ++each) {
        if (each->second != writer) continue;
        mWriters.erase(each);
        return;
    }
}

}  // namespace vyn
