// SPDX-License-Identifier: Apache-2.0

#pragma once

#include_next <unistd.h>

extern "C" {
VYN_NOT_IN_BIONIC char* get_current_dir_name(void);
VYN_NOT_IN_BIONIC int euidaccess(const char*, int);
VYN_NOT_IN_BIONIC int eaccess(const char*, int);
VYN_NOT_IN_BIONIC int getdtablesize(void);
VYN_NOT_IN_BIONIC int close_range(unsigned int, unsigned int, int);
VYN_NOT_IN_BIONIC ssize_t copy_file_range(int, off64_t*, int, off64_t*, size_t, unsigned int);
VYN_NOT_IN_BIONIC size_t confstr(int, char*, size_t);
}
