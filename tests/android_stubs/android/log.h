// SPDX-License-Identifier: Apache-2.0

#pragma once

// The log of a device as the library uses it, for compiling its files elsewhere.

enum {
    ANDROID_LOG_VERBOSE = 2,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
};

extern "C" int __android_log_write(int priority, const char* tag, const char* text);
