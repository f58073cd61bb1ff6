// SPDX-License-Identifier: Apache-2.0

#pragma once

#define pthread_t hidden_pthread_t
#define pthread_key_t hidden_pthread_key_t
#include_next <bits/pthreadtypes.h>
#undef pthread_t
#undef pthread_key_t
typedef long pthread_t;
typedef int pthread_key_t;
