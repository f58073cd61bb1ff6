// SPDX-License-Identifier: Apache-2.0

#include_next <stdlib.h>

#ifndef VYN_STDLIB
#define VYN_STDLIB
extern "C" {
VYN_NOT_IN_BIONIC void qsort_r(void*, size_t, size_t, __compar_d_fn_t, void*);
VYN_NOT_IN_BIONIC char* secure_getenv(const char*);
VYN_NOT_IN_BIONIC char* canonicalize_file_name(const char*);
VYN_NOT_IN_BIONIC int rpmatch(const char*);
}
#endif
