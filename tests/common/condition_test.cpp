#include <gtest/gtest.h>
#include <vyn/condition.h>

#include <cerrno>
#include <climits>
#include <limits>
#include <thread>
#include <vector>

#include "common/deadline.h"

namespace vyn {
namespace {

TEST(Deadline, IsValidForEveryIntAndNeverWrapsRound) {
    EXPECT_EQ(deadlineAfter({10, 800000}, 1500).tv_sec, 12);
    EXPECT_EQ(deadlineAfter({10, 800000}, 1500).tv_nsec, 300000000);
    constexpr time_t kNow = std::numeric_limits<time_t>::max() - 1;
    for (const int ms : {INT_MIN, -1000, -999, -1, 0, 1, 999, 1000, INT_MAX}) {
        const timespec deadline = deadlineAfter({kNow, 999999}, ms);
        const bool isPast =
            std::pair(deadline.tv_sec, deadline.tv_nsec) < std::pair(kNow, 999999000L);
        EXPECT_EQ(isPast, ms < 0) << ms;
        EXPECT_TRUE(deadline.tv_nsec >= 0 && deadline.tv_nsec < 1000000000) << ms;
    }
}

TEST(Condition, ATimedWaitWithoutASignalTimesOut) {
    Condition condition;
    condition.lock();
    for (const int ms : {50, 0, -1500}) EXPECT_EQ(condition.wait(ms), ETIMEDOUT) << ms;
    condition.unlock();
}

TEST(Condition, ASignalWakesOneWaiterAndABroadcastEveryOne) {
    for (const int count : {1, 3}) {
        Condition condition;
        int waiting = 0;
        bool ready = false;
        std::vector<std::thread> waiters;
        for (int i = 0; i < count; ++i) {
            waiters.emplace_back([&] {
                condition.lock();
                ++waiting;
                while (!ready) EXPECT_EQ(count == 1 ? condition.wait(60000) : condition.wait(), 0);
                condition.unlock();
            });
        }
        // Who has counted itself and given up the mutex is waiting.
        for (bool all = false; !all; std::this_thread::yield()) {
            condition.lock();
            all = ready = waiting == count;
            if (all) count == 1 ? condition.signal() : condition.broadcast();
            condition.unlock();
        }
        for (std::thread& waiter : waiters) waiter.join();
    }
}

TEST(Condition, DoesNothingOnceDestroyed) {
    alignas(Condition) unsigned char memory[sizeof(Condition)];
    auto* condition = new (memory) Condition;
    condition->~Condition();
    EXPECT_EQ(condition->lock() | condition->unlock(), 0);
    EXPECT_EQ(condition->wait() | condition->wait(60000), 0);
    EXPECT_EQ(condition->signal() | condition->broadcast(), 0);
}

}  // namespace
}  // namespace vyn
