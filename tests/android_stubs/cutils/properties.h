// SPDX-License-Identifier: Apache-2.0

#pragma once

// The property calls of a device as the library uses them, for compiling its files elsewhere.

#define PROPERTY_VALUE_MAX 92

extern "C" int property_set(const char* key, const char* value);
