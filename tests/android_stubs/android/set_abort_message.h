// SPDX-License-Identifier: Apache-2.0

#pragma once

// The abort message of a device as the library uses it, for compiling its files elsewhere.

extern "C" void android_set_abort_message(const char* message);
