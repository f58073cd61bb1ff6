#include <gtest/gtest.h>
#include <vyn/helper.h>
#include <vyn/pipe_waiter.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "support/descriptors.h"

namespace vyn::testing {
namespace {

TEST(PipeWaiter, NotificationsBeforeTheWaitReleaseOneWaitEachUntilThePipeIsFull) {
    PipeWaiter waiter;
    int kept = 0;
    while (waiter.notify() == 1) ++kept;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(kept, 4096);
    EXPECT_TRUE(waiter.wait(0));
    while (--kept > 0) ASSERT_TRUE(waiter.wait(60000));
    const int64_t start = helper::ntick();
    EXPECT_FALSE(waiter.wait(50));
    EXPECT_GE(helper::ntick() - start, 50'000'000);
}

TEST(PipeWaiter, AWaitBelowOneMillisecondHasNoLimit) {
    for (const int ms : {0, -1}) {
        PipeWaiter waiter;
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
        std::atomic<int> released{0};
        std::thread one([&] { released += waiter.wait(5); });
        std::thread other([&] { released += waiter.wait(5); });
        waiter.notify();
        one.join();
        other.join();
        // On a busy machine both waits may end before the notification.
        ASSERT_EQ(released + waiter.wait(1), 1);
    }
}

TEST(PipeWaiter, WorksBeyondTheDescriptorsThatSelectKnowsAndNotWithoutAny) {
    const int before = openDescriptors();
    {
        allowDescriptors(1200);
        std::vector<PipeWaiter> waiters(550);
        EXPECT_FALSE(waiters.back().wait(1));
        EXPECT_EQ(waiters.back().notify(), 1);
        EXPECT_TRUE(waiters.back().wait(60000));
    }
    EXPECT_EQ(openDescriptors(), before);
    const ExhaustedDescriptors none;
    PipeWaiter waiter;
    EXPECT_EQ(waiter.notify(), -1);
    EXPECT_FALSE(waiter.wait(0));
}

}  // namespace
}  // namespace vyn::testing
