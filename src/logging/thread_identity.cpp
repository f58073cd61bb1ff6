// SPDX-License-Identifier: Apache-2.0

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vyn/logging.h>

#include "common/tick.h"

namespace logging {

namespace {

constexpr pthread_key_t kNoKey = ~pthread_key_t{0};
std::atomic<pthread_key_t> gTagKey{kNoKey};

pthread_key_t createTagKey() {
    pthread_key_t key = kNoKey;
    pthread_key_create(&key, nullptr);
    gTagKey.store(key, std::memory_order_release);
    return key;
}

}  // namespace

void setThreadLoggingTag(const char* tag) {
    static const pthread_key_t key = createTagKey();
    pthread_setspecific(key, tag);
}

const char* getThreadLoggingTag() {
    const pthread_key_t key = gTagKey.load(std::memory_order_acquire);
    return key == kNoKey ? nullptr : static_cast<const char*>(pthread_getspecific(key));
}

void setThreadName(const std::string& name) { prctl(PR_SET_NAME, name.c_str(), 0, 0, 0); }

std::string getThreadName() {
    char name[32] = {};
    prctl(PR_GET_NAME, name, 0, 0, 0);
    return name;
}

int currentThreadId() { return static_cast<int>(syscall(SYS_gettid)); }

long mtick() { return vyn::tick::toTick(vyn::tick::now()); }

int64_t ntick() { return vyn::tick::nanoseconds(); }

}  // namespace logging
