#include "connector/timer_queue.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "common/tick.h"
#include "support/manual_clock.h"

namespace vyn {
namespace {

using testing::kLastPositiveTick;
using testing::ManualClock;

// Notes each call in a journal that it shares with others: its letter and the count.
class JournalTimer : public Timer {
  public:
    JournalTimer(std::string& journal, char letter) : mJournal(journal), mLetter(letter) {}

    std::function<bool()> action = [] { return true; };
    int removed = 0;
    void* lastArg = nullptr;

    bool onTimer(void* arg, int count) override {
        lastArg = arg;
        mJournal += mLetter + std::to_string(count);
        return action();
    }
    void onTimerRemoved() override { ++removed; }

  private:
    std::string& mJournal;
    char mLetter;
};

struct TimerQueueTest : ::testing::Test {
    ManualClock clock{1000};
    WakePipe wakePipe;
    TimerQueue queue{wakePipe};
    std::string journal;
    JournalTimer a{journal, 'a'};
    JournalTimer b{journal, 'b'};
    JournalTimer c{journal, 'c'};

    ~TimerQueueTest() override { queue.clear(); }

    std::string fireAfter(int64_t milliseconds) {
        clock.advance(milliseconds);
        journal.clear();
        queue.fireDue(tick::now());
        return journal;
    }
};

TEST_F(TimerQueueTest, FiresNoEarlierThanOneIntervalAndThenPeriodically) {
    int argument = 0;
    queue.add(&a, 100, &argument);
    EXPECT_EQ(fireAfter(99), "");
    EXPECT_EQ(fireAfter(1), "a1");
    EXPECT_EQ(a.lastArg, &argument);
    EXPECT_EQ(fireAfter(99), "");
    EXPECT_EQ(fireAfter(1), "a2");
}

TEST_F(TimerQueueTest, FiresOnceWhenItFellBehindAndCountsThePeriodFromTheEndOfTheCall) {
    queue.add(&a, 100, nullptr);
    a.action = [this] {
        clock.advance(30);
        return true;
    };
    EXPECT_EQ(fireAfter(1000), "a1");
    EXPECT_EQ(fireAfter(99), "");
    EXPECT_EQ(fireAfter(1), "a2");
}

TEST_F(TimerQueueTest, FiresWhatIsDueTogetherInTheOrderOfAddition) {
    queue.add(&a, 30, nullptr);
    queue.add(&b, 10, nullptr);
    queue.add(&c, 20, nullptr);
    EXPECT_EQ(fireAfter(30), "a1b1c1");
    queue.reset(0);
    EXPECT_EQ(fireAfter(20), "b2c2");
}

TEST_F(TimerQueueTest, NeverFiresAgainAfterReturningFalse) {
    a.action = [] { return false; };
    queue.add(&a, 10, nullptr);
    EXPECT_EQ(fireAfter(10), "a1");
    EXPECT_EQ(a.removed, 1);
    EXPECT_EQ(fireAfter(1000), "");
    EXPECT_EQ(queue.nextExpire(), INT64_MAX);
    queue.remove(0);
    EXPECT_EQ(a.removed, 1);
}

TEST_F(TimerQueueTest, RemovesEveryTimerOfAnIdOnceAndIgnoresUnknownIds) {
    const int id = queue.add(&a, 10, nullptr);
    queue.remove(id + 1);
    EXPECT_EQ(a.removed, 0);
    queue.remove(id);
    queue.remove(id);
    EXPECT_EQ(a.removed, 1);
    EXPECT_EQ(fireAfter(100), "");
}

TEST_F(TimerQueueTest, ResetRestartsThePeriod) {
    const int id = queue.add(&a, 100, nullptr);
    clock.advance(90);
    queue.reset(id);
    queue.reset(id + 1);
    EXPECT_EQ(fireAfter(99), "");
    EXPECT_EQ(fireAfter(1), "a1");
}

TEST_F(TimerQueueTest, AnIntervalBelowOneIsDueInEveryTurn) {
    queue.add(&a, 0, nullptr);
    queue.add(&b, -5, nullptr);
    EXPECT_EQ(fireAfter(0), "a1b1");
    EXPECT_EQ(fireAfter(0), "a2b2");
    EXPECT_LE(queue.nextExpire(), 1000);
}

TEST_F(TimerQueueTest, FiresOnTimeAcrossTheWrapOfTheTick) {
    clock.advance(kLastPositiveTick - 1000 - 50);
    queue.add(&a, 100, nullptr);
    queue.add(&b, 20, nullptr);
    EXPECT_EQ(fireAfter(20), "b1");
    EXPECT_EQ(fireAfter(79), "b2");
    EXPECT_EQ(fireAfter(1), "a1");
    EXPECT_EQ(fireAfter(99), "b3");
    EXPECT_EQ(fireAfter(1), "a2");
}

TEST_F(TimerQueueTest, CallbacksMayAddResetAndRemoveTimers) {
    const int idA = queue.add(&a, 10, nullptr);
    const int idB = queue.add(&b, 10, nullptr);
    a.action = [&] {
        queue.add(&c, 5, nullptr);
        queue.remove(idB);
        queue.remove(idA);
        return true;
    };
    EXPECT_EQ(fireAfter(10), "a1");
    EXPECT_EQ(a.removed, 1);
    EXPECT_EQ(b.removed, 1);
    EXPECT_EQ(fireAfter(5), "c1");
}

TEST_F(TimerQueueTest, ATimerResetByAnotherDoesNotFireInTheSameTurn) {
    queue.add(&a, 10, nullptr);
    const int idB = queue.add(&b, 10, nullptr);
    a.action = [&] {
        queue.reset(idB);
        return true;
    };
    EXPECT_EQ(fireAfter(10), "a1");
    EXPECT_EQ(fireAfter(9), "");
}

TEST_F(TimerQueueTest, ClearTellsEveryTimer) {
    queue.add(&a, 10, nullptr);
    queue.add(&a, 20, nullptr);
    queue.add(&b, 10, nullptr);
    EXPECT_EQ(queue.clear(), 3);
    EXPECT_EQ(a.removed, 2);
    EXPECT_EQ(b.removed, 1);
    EXPECT_EQ(queue.clear(), 0);
}

TEST_F(TimerQueueTest, ATimerThatIsClearedMayRemoveTheNextOne) {
    auto second = std::make_unique<JournalTimer>(journal, 's');
    struct Remover : Timer {
        std::function<void()> action;
        bool onTimer(void*, int) override { return true; }
        void onTimerRemoved() override { action(); }
    } remover;
    queue.add(&remover, 10, nullptr);
    const int id = queue.add(second.get(), 10, nullptr);
    int removed = 0;
    remover.action = [&] {
        queue.remove(id);
        removed = second->removed;
        second.reset();
    };
    EXPECT_EQ(queue.clear(), 2);
    EXPECT_EQ(removed, 1);
}

TEST(TimerQueue, StartsItsIdsAgainAtZero) {
    std::string journal;
    JournalTimer timer{journal, 'a'};
    WakePipe wakePipe;
    TimerQueue fresh(wakePipe);
    EXPECT_EQ(fresh.add(&timer, 10, nullptr), 0);
    EXPECT_EQ(fresh.add(&timer, 10, nullptr), 1);

    TimerQueue worn(wakePipe, 2147483630);
    EXPECT_EQ(worn.add(&timer, 10, nullptr), 2147483630);
    EXPECT_EQ(worn.add(&timer, 10, nullptr), 2147483631);
    EXPECT_EQ(worn.add(&timer, 10, nullptr), 0);
}

TEST(TimerQueue, HoldsManyTimersInOrder) {
    ManualClock clock(0);
    std::string journal;
    std::vector<std::unique_ptr<JournalTimer>> timers;
    WakePipe wakePipe;
    TimerQueue queue(wakePipe);
    constexpr int kTimers = 1000;
    for (int i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_unique<JournalTimer>(journal, 'x'));
        timers.back()->action = [] { return false; };
        queue.add(timers.back().get(), 1 + i * 7919 % kTimers, nullptr);
    }
    for (int i = 0; i < kTimers; i += 3) queue.remove(i);
    for (int i = 1; i < kTimers; i += 3) queue.reset(i);
    for (int now = 1; now <= kTimers; ++now) {
        clock.advance(1);
        journal.clear();
        queue.fireDue(tick::now());
        int due = 0;
        for (int i = 0; i < kTimers; ++i) due += i % 3 != 0 && 1 + i * 7919 % kTimers == now;
        ASSERT_EQ(journal.size(), 2u * static_cast<size_t>(due)) << "at " << now;
    }
}

TEST(TimerQueue, RemovalFromAnotherThreadWaitsForACallbackUnderWay) {
    WakePipe wakePipe;
    TimerQueue queue(wakePipe);
    std::string journal;
    JournalTimer timer{journal, 'a'};
    std::atomic<bool> inCallback{false};
    std::atomic<bool> over{false};
    timer.action = [&] {
        inCallback = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        over = true;
        return true;
    };
    const int id = queue.add(&timer, 0, nullptr);
    std::thread loop([&] { queue.fireDue(tick::now()); });
    while (!inCallback) std::this_thread::yield();
    queue.remove(id);
    EXPECT_TRUE(over);
    loop.join();
}

}  // namespace
}  // namespace vyn
