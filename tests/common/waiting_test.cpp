// SPDX-License-Identifier: Apache-2.0

#include <vyn/condition.h>
#include <vyn/helper.h>
#include <vyn/pipe_waiter.h>

#include <climits>
#include <limits>

#include "common/deadline.h"
#include "support/support.h"

namespace vyn::testing {
namespace {

TEST(Deadline, NeverWrapsRound) {
    constexpr time_t kNow = std::numeric_limits<time_t>::max() - 1;
    for (const int ms : {INT_MIN, -1, 0, 1, INT_MAX}) {
        const auto [seconds, ns] = deadlineAfter({kNow, 999999}, ms);
        EXPECT_EQ(std::pair(seconds, ns) < std::pair(kNow, 999999000L), ms < 0) << ms;
    }
}

TEST(Condition, ASignalWakesOneWaiterAndABroadcastEveryOne) {
    for (const int count : {1, 3}) {
        Condition condition;
        int waiting = 0;
        bool ready = false;
        std::vector<std::thread> waiters;
        for (int i = 0; i < count; ++i) {
            waiters.emplace_back([&] {
                Condition::Holder holder(condition);
                ++waiting;
                const auto isReady = [&] { return ready; };
                EXPECT_TRUE(count == 1 ? condition.wait(INT_MAX, isReady)
                                       : condition.wait(isReady) == 0);
            });
        }
        while (!ready) {  // Who has counted itself and given up the mutex is waiting.
            Condition::Holder holder(condition);
            ready = waiting == count;
            if (ready) count == 1 ? condition.signal() : condition.broadcast();
        }
        for (std::thread& waiter : waiters) waiter.join();
    }
}

TEST(Condition, TimesOutWithoutASignalAndDoesNothingOnceDestroyed) {
    alignas(Condition) unsigned char memory[sizeof(Condition)];
    auto* condition = new (memory) Condition;
    condition->lock();
    for (const int ms : {1050, 1, 0, -1500, INT_MIN}) {
        const int64_t start = helper::ntick();
        EXPECT_EQ(condition->wait(ms), ETIMEDOUT) << ms;
        EXPECT_GE(helper::ntick() - start, ms * int64_t{1000000}) << ms;
    }
    const int64_t start = helper::ntick();
    EXPECT_FALSE(condition->wait(20, [] { return false; }));
    EXPECT_EQ(condition->waitMonotonic(20), ETIMEDOUT);
    EXPECT_GE(helper::ntick() - start, 40000000);
    condition->unlock();
    condition->~Condition();
    EXPECT_EQ(condition->lock() | condition->wait() | condition->wait(60000) | condition->unlock() |
                  condition->signal() | condition->broadcast(),
              0);
}

TEST(PipeWaiter, NotificationsBeforeTheWaitReleaseOneWaitEachUntilThePipeIsFull) {
    PipeWaiter waiter;
    int kept = 0;
    while (waiter.notify() == 1) ++kept;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(kept, 4096);
    for (; kept > 0; --kept) ASSERT_TRUE(waiter.wait(60000));
    const int64_t start = helper::ntick();
    EXPECT_FALSE(waiter.wait(50));
    EXPECT_GE(helper::ntick() - start, 50'000'000);
    for (const int ms : {0, -1}) {  // no limit
        std::atomic<bool> notified{false};
        std::thread waiting([&] { EXPECT_TRUE(waiter.wait(ms) && notified); });
        EXPECT_FALSE(PipeWaiter().wait(20));  // Time enough for a limited wait to end.
        notified = true;
        waiter.notify();
        waiting.join();
    }
}

TEST(PipeWaiter, OneNotificationReleasesOneOfTwoWaitersAndTheOtherTimesOut) {
    for (int round = 0; round < 100; ++round) {
        PipeWaiter waiter;
        int other = 0;
        std::thread waiting([&] { other = waiter.wait(5); });
        waiter.notify();
        const int own = waiter.wait(5);
        waiting.join();
        // On a busy machine both waits may end before the notification.
        ASSERT_EQ(own + other + waiter.wait(1), 1);
    }
}

TEST(PipeWaiter, DoesNotWorkWithoutDescriptors) {
    const ExhaustedDescriptors none;
    PipeWaiter waiter;
    EXPECT_EQ(waiter.notify(), -1);
    EXPECT_FALSE(waiter.wait(0));
}

}  // namespace
}  // namespace vyn::testing
