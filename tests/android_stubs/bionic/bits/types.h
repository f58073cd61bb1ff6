// SPDX-License-Identifier: Apache-2.0

#pragma once

// The types that bionic has otherwise than this C library, where `long` has 32 bits.

#define __mode_t hidden_mode_t
#define __socklen_t hidden_socklen_t
#include_next <bits/types.h>
#undef __mode_t
#undef __socklen_t
typedef unsigned short __mode_t;
typedef int __socklen_t;
