#include <gtest/gtest.h>
#include <vyn/condition.h>

#include <cerrno>
#include <limits>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "common/deadline.h"

namespace {

using vyn::Condition;
using vyn::deadlineAfter;

constexpr int kLongMs = 60000;

TEST(Deadline, CarriesWholeSecondsOutOfTheNanoseconds) {
    const timespec deadline = deadlineAfter({10, 800000}, 1500);
    EXPECT_EQ(deadline.tv_sec, 12);
    EXPECT_EQ(deadline.tv_nsec, 300000000);
}

TEST(Deadline, OfANegativeTimeLiesInThePast) {
    const timespec deadline = deadlineAfter({10, 800}, -1001);
    EXPECT_EQ(deadline.tv_sec, 8);
    EXPECT_EQ(deadline.tv_nsec, 999800000);
}

TEST(Deadline, IsValidForEveryIntAndNeverWrapsRound) {
    constexpr time_t kEnd = std::numeric_limits<time_t>::max();
    for (int ms : {std::numeric_limits<int>::min(), -1000, -999, -1, 0, 1, 999, 1000,
                   std::numeric_limits<int>::max()}) {
        for (suseconds_t microseconds : {0, 1, 999999}) {
            const timespec deadline = deadlineAfter({kEnd - 1, microseconds}, ms);
            const std::pair<time_t, long> now{kEnd - 1, microseconds * 1000};
            const bool isPast = std::pair{deadline.tv_sec, deadline.tv_nsec} < now;
            EXPECT_GE(deadline.tv_nsec, 0) << ms;
            EXPECT_LT(deadline.tv_nsec, 1000000000) << ms;
            EXPECT_EQ(isPast, ms < 0) << ms;
        }
    }
}

TEST(Condition, ATimedWaitWithoutASignalTimesOut) {
    Condition condition;
    for (int ms : {50, 0, -1, -1500}) {
        condition.lock();
        EXPECT_EQ(condition.wait(ms), ETIMEDOUT) << ms;
        condition.unlock();
    }
}

TEST(Condition, ASignalEndsATimedWait) {
    Condition condition;
    bool ready = false;
    std::thread signaller([&] {
        condition.lock();
        ready = true;
        condition.signal();
        condition.unlock();
    });
    condition.lock();
    int result = 0;
    while (!ready && result == 0) result = condition.wait(kLongMs);
    condition.unlock();
    signaller.join();
    EXPECT_EQ(result, 0);
}

TEST(Condition, ABroadcastWakesEveryWaiter) {
    Condition condition;
    int waiting = 0;
    bool ready = false;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] {
            condition.lock();
            ++waiting;
            while (!ready) condition.wait();
            condition.unlock();
        });
    }
    // Who has counted itself and given up the mutex is waiting.
    for (bool all = false; !all; std::this_thread::yield()) {
        condition.lock();
        all = ready = waiting == 3;
        if (all) condition.broadcast();
        condition.unlock();
    }
    for (std::thread& waiter : waiters) waiter.join();
}

TEST(Condition, DoesNothingOnceDestroyed) {
    alignas(Condition) unsigned char memory[sizeof(Condition)];
    auto* condition = new (memory) Condition;
    condition->~Condition();
    EXPECT_EQ(condition->lock(), 0);
    EXPECT_EQ(condition->wait(), 0);
    EXPECT_EQ(condition->wait(kLongMs), 0);
    EXPECT_EQ(condition->signal(), 0);
    EXPECT_EQ(condition->broadcast(), 0);
    EXPECT_EQ(condition->unlock(), 0);
}

}  // namespace
