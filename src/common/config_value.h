// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

// Reads properties as values of a type. Any thread.
namespace vyn::config {

struct NumberKey {
    const char* key;
    int def;
    int min;
    int max;
};

struct SwitchKey {
    const char* key;
    bool def;
};

struct FolderKey {
    const char* key;
    const char* def;
};

// The value of the property, or the default when there is none or, with a warning, when it is not
// usable. The folder ends in "/".
int read(const NumberKey& number);
bool read(const SwitchKey& onOff);
std::string read(const FolderKey& folder);

}  // namespace vyn::config
