// SPDX-License-Identifier: Apache-2.0

#pragma once

#include_next <sys/cdefs.h>

#define __BIONIC__ 1
#undef __GLIBC__
#undef __GLIBC_MINOR__

// What this C library declares and bionic, at API level 31, does not have.
#define VYN_NOT_IN_BIONIC __attribute__((unavailable("bionic has none at API level 31")))
