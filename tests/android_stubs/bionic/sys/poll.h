// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <signal.h>

#define nfds_t hidden_nfds_t
#define poll hidden_poll
#define ppoll hidden_ppoll
#include_next <sys/poll.h>
#undef nfds_t
#undef poll
#undef ppoll
typedef unsigned int nfds_t;
extern "C" int poll(struct pollfd*, nfds_t, int);
extern "C" int ppoll(struct pollfd*, nfds_t, const struct timespec*, const sigset_t*);
