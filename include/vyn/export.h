// SPDX-License-Identifier: Apache-2.0

#pragma once

// VYN_API marks what the shared library exports; everything else stays hidden in it.
#define VYN_API __attribute__((visibility("default")))
