// SPDX-License-Identifier: Apache-2.0

#include <pthread.h>
#include <vyn/condition.h>
#include <vyn/logging.h>

#include <memory>

#include "common/deadline.h"

namespace vyn {

struct Condition::Pair {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
};

Condition::Condition() : mPair(nullptr) {
    auto pair = std::make_unique<Pair>();
    int ret = pthread_mutex_init(&pair->mutex, nullptr);
    VYN_CHECK_OR_RETURN(ret == 0);
    ret = pthread_cond_init(&pair->condition, nullptr);
    if (ret != 0) pthread_mutex_destroy(&pair->mutex);
    VYN_CHECK_OR_RETURN(ret == 0);
    mPair = pair.release();
}

Condition::~Condition() {
    Pair* const pair = mPair;
    if (pair == nullptr) return;
    pthread_mutex_destroy(&pair->mutex);
    pthread_cond_destroy(&pair->condition);
    delete pair;
    mPair = nullptr;
}

int Condition::lock() {
    Pair* const pair = mPair;
    return pair == nullptr ? 0 : pthread_mutex_lock(&pair->mutex);
}

int Condition::unlock() {
    Pair* const pair = mPair;
    return pair == nullptr ? 0 : pthread_mutex_unlock(&pair->mutex);
}

int Condition::wait() {
    Pair* const pair = mPair;
    return pair == nullptr ? 0 : pthread_cond_wait(&pair->condition, &pair->mutex);
}

int Condition::wait(int ms) {
    Pair* const pair = mPair;
    if (pair == nullptr) return 0;
    timeval now{};
    gettimeofday(&now, nullptr);
    const timespec deadline = deadlineAfter(now, ms);
    return pthread_cond_timedwait(&pair->condition, &pair->mutex, &deadline);
}

int Condition::waitMonotonic(int ms) { return waitUntil(monotonicEnd(ms)); }

timespec Condition::monotonicEnd(int ms) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return laterBy(now, ms);
}

int Condition::waitUntil(const timespec& end) {
    Pair* const pair = mPair;
    if (pair == nullptr) return 0;
    return pthread_cond_clockwait(&pair->condition, &pair->mutex, CLOCK_MONOTONIC, &end);
}

int Condition::waitInside(Condition& other) {
    Pair* const pair = mPair;
    Pair* const locked = other.mPair;
    if (pair == nullptr || locked == nullptr) return 0;
    return pthread_cond_wait(&pair->condition, &locked->mutex);
}

int Condition::signal() {
    Pair* const pair = mPair;
    return pair == nullptr ? 0 : pthread_cond_signal(&pair->condition);
}

int Condition::broadcast() {
    Pair* const pair = mPair;
    return pair == nullptr ? 0 : pthread_cond_broadcast(&pair->condition);
}

}  // namespace vyn
