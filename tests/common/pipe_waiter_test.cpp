#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vyn/pipe_waiter.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

namespace {

using vyn::PipeWaiter;

constexpr int kLongMs = 60000;
constexpr int kSelectLimit = 1024;

class DescriptorLimit {
  public:
    explicit DescriptorLimit(rlim_t limit) {
        getrlimit(RLIMIT_NOFILE, &mBefore);
        const rlimit changed{limit, mBefore.rlim_max};
        mSet = setrlimit(RLIMIT_NOFILE, &changed) == 0;
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &mBefore); }
    bool isSet() const { return mSet; }

  private:
    rlimit mBefore{};
    bool mSet = false;
};

TEST(PipeWaiter, NotificationsBeforeTheWaitReleaseOneWaitEach) {
    PipeWaiter waiter;
    EXPECT_EQ(waiter.notify(), 1);
    EXPECT_EQ(waiter.notify(), 1);
    EXPECT_TRUE(waiter.wait(0));
    EXPECT_TRUE(waiter.wait(kLongMs));
    EXPECT_FALSE(waiter.wait(1));
}

TEST(PipeWaiter, AWaitWithoutNotificationEndsNoEarlierThanItsTime) {
    PipeWaiter waiter;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(waiter.wait(50));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST(PipeWaiter, AWaitBelowOneMillisecondHasNoLimit) {
    for (int ms : {0, -1}) {
        PipeWaiter waiter;
        std::atomic<bool> notified{false};
        std::thread waiting([&] {
            EXPECT_TRUE(waiter.wait(ms));
            EXPECT_TRUE(notified);
        });
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
        std::vector<std::thread> waiters;
        for (int i = 0; i < 2; ++i) waiters.emplace_back([&] { released += waiter.wait(5); });
        waiter.notify();
        for (std::thread& thread : waiters) thread.join();
        // On a busy machine both waits may end before the notification.
        ASSERT_EQ(released + waiter.wait(1), 1);
    }
}

TEST(PipeWaiter, AFullPipeRefusesNotificationsAndKeepsThoseItHas) {
    PipeWaiter waiter;
    int kept = 0;
    while (waiter.notify() == 1) ++kept;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(kept, 4096);
    while (kept > 0 && waiter.wait(1)) --kept;
    EXPECT_EQ(kept, 0);
    EXPECT_FALSE(waiter.wait(1));
}

TEST(PipeWaiter, WorksBeyondTheDescriptorsThatSelectKnows) {
    const DescriptorLimit limit(kSelectLimit + 100);
    if (!limit.isSet()) GTEST_SKIP() << "the system allows too few descriptors";
    std::vector<int> occupied;
    do {
        occupied.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_NE(occupied.back(), -1);
    } while (occupied.back() < kSelectLimit);
    {
        PipeWaiter waiter;
        EXPECT_FALSE(waiter.wait(1));
        EXPECT_EQ(waiter.notify(), 1);
        EXPECT_TRUE(waiter.wait(kLongMs));
    }
    for (int descriptor : occupied) close(descriptor);
}

TEST(PipeWaiter, WithoutDescriptorsNeitherNotifiesNorWaits) {
    const DescriptorLimit limit(0);
    ASSERT_TRUE(limit.isSet());
    PipeWaiter waiter;
    EXPECT_EQ(waiter.notify(), -1);
    EXPECT_FALSE(waiter.wait(0));
}

TEST(PipeWaiter, ClosesItsDescriptors) {
    const int free = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(free);
    { PipeWaiter waiter; }
    const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(after);
    EXPECT_EQ(after, free);
}

}  // namespace
