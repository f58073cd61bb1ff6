// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/export.h>

// Log lines from C code, in printf's form; C++ code has the macros of logging.h. Any thread.

#ifdef __cplusplus
extern "C" {
#endif

// The levels: a line of a greater level than the one that is set is dropped.
enum {
    VYN_LEVEL_ERROR = 1,
    VYN_LEVEL_WARNING = 2,
    VYN_LEVEL_INFO = 3,
    VYN_LEVEL_DEBUG = 4,
    VYN_LEVEL_VERBOSE = 5
};

// Writes one line with the tag "CF"; text beyond 4095 bytes is cut. With a null `file` or
// `function` the line carries no source position; a null `format` is an empty text.
VYN_API void logging_printf(const char* file, const char* function, int line, int level,
                            const char* format, ...) __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif

// The same with the position of the call: VYN_PRINTF(VYN_LEVEL_INFO, "%d pumps", count);
#define VYN_PRINTF(level, ...) logging_printf(__FILE__, __func__, __LINE__, level, __VA_ARGS__)
