#pragma once

// The C library's property calls on a device as the library uses them, for compiling its files
// elsewhere.

#define PROP_VALUE_MAX 92

extern "C" {
int __system_property_get(const char* key, char* value);
int __system_property_set(const char* key, const char* value);
}
