// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/lock.h>

#include <map>
#include <string>
#include <unordered_map>

namespace vyn {

class FunctionDevice;

// Who listens under which name, and who is paired with whom, in the whole process.
//
// Any thread. All changes of pairings are made under the one lock here and published to each device
// under its own, which is what a writing device takes: writers do not wait for pairings that are
// none of theirs. The lock is never held while the application is called.
class FunctionRegistry {
  public:
    static FunctionRegistry& instance();

    // Replaces the device that has the name so far.
    void listen(const std::string& name, FunctionDevice* device);
    // Null when nobody listens.
    FunctionDevice* find(const std::string& name);
    // Makes each the other's peer.
    void pair(FunctionDevice* one, FunctionDevice* other);
    // Drops the device's names and unpairs it and its peer.
    void disconnect(FunctionDevice* device);
    // Also unpairs the devices that were left with it as their peer when it was paired anew. When
    // this returns no other device uses it any more.
    void forget(FunctionDevice* device);

  private:
    FunctionRegistry() = default;
    FunctionDevice* setPeer(FunctionDevice* device, FunctionDevice* peer) VYN_REQUIRES(mLock);
    void dropWriter(FunctionDevice* device, FunctionDevice* writer) VYN_REQUIRES(mLock);

    Lock mLock;
    std::map<std::string, FunctionDevice*> mListeners VYN_GUARDED_BY(mLock);
    // From each device to those that write to it.
    std::unordered_multimap<FunctionDevice*, FunctionDevice*> mWriters VYN_GUARDED_BY(mLock);
};

}  // namespace vyn
