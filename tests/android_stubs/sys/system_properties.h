// SPDX-License-Identifier: Apache-2.0

#pragma once

// The C library's property calls on a device as the library uses them, for compiling its files
// elsewhere.

#include <cstdint>

#define PROP_VALUE_MAX 92

struct prop_info;

extern "C" {
const prop_info* __system_property_find(const char* key);
void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* key,
                                                      const char* value, uint32_t serial),
                                     void* cookie);
int __system_property_set(const char* key, const char* value);
}
