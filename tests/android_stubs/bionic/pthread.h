// SPDX-License-Identifier: Apache-2.0

#pragma once

#include_next <pthread.h>

extern "C" {
VYN_NOT_IN_BIONIC int pthread_cancel(pthread_t);
VYN_NOT_IN_BIONIC int pthread_setcancelstate(int, int*);
VYN_NOT_IN_BIONIC int pthread_setcanceltype(int, int*);
VYN_NOT_IN_BIONIC void pthread_testcancel(void);
VYN_NOT_IN_BIONIC int pthread_getattr_default_np(pthread_attr_t*);
VYN_NOT_IN_BIONIC int pthread_setattr_default_np(const pthread_attr_t*);
VYN_NOT_IN_BIONIC int pthread_tryjoin_np(pthread_t, void**);
VYN_NOT_IN_BIONIC int pthread_timedjoin_np(pthread_t, void**, const struct timespec*);
VYN_NOT_IN_BIONIC int pthread_setaffinity_np(pthread_t, size_t, const cpu_set_t*);
VYN_NOT_IN_BIONIC int pthread_getaffinity_np(pthread_t, size_t, cpu_set_t*);
VYN_NOT_IN_BIONIC int pthread_mutexattr_setrobust(pthread_mutexattr_t*, int);
VYN_NOT_IN_BIONIC int pthread_mutex_consistent(pthread_mutex_t*);
VYN_NOT_IN_BIONIC int pthread_attr_setaffinity_np(pthread_attr_t*, size_t, const cpu_set_t*);
}
