// SPDX-License-Identifier: Apache-2.0

#include "connector/timer_queue.h"

#include <algorithm>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

// Notes each call in a journal that it shares with others: its letter and the count.
struct JournalTimer : Timer {
    JournalTimer(std::string& sharedJournal, char itsLetter)
        : journal(sharedJournal), letter(itsLetter) {}

    std::string& journal;
    char letter;
    std::function<bool()> action = [] { return true; };
    std::function<void()> onRemoved = [] {};

    bool onTimer(void* arg, int count) override {
        EXPECT_EQ(arg, this);
        journal += letter + std::to_string(count);
        return action();
    }
    void onTimerRemoved() override {
        journal += static_cast<char>(std::toupper(letter));
        onRemoved();
    }
};

// The tick wraps 50 milliseconds after a test begins.
struct TimerQueueTest : ::testing::Test {
    ManualClock clock{kLastPositiveTick - 50};
    WakePipe wakePipe;
    TimerQueue queue{wakePipe};
    std::string journal;
    JournalTimer a{journal, 'a'};
    JournalTimer b{journal, 'b'};
    JournalTimer c{journal, 'c'};

    ~TimerQueueTest() override { queue.clear(); }

    int add(JournalTimer& timer, long intervalMs) { return queue.add(&timer, intervalMs, &timer); }
    std::string fireAfter(int64_t milliseconds) {
        clock.advance(milliseconds);
        queue.fireDue(tick::now());
        return std::exchange(journal, "");
    }
};

TEST_F(TimerQueueTest, FiresWhatIsDueInTheOrderOfAdditionAndThenPeriodically) {
    add(a, 100);
    add(b, 20);
    add(c, 0);
    EXPECT_EQ(fireAfter(0), "c1");
    EXPECT_EQ(fireAfter(19), "c2");
    EXPECT_EQ(fireAfter(1), "b1c3");
    EXPECT_EQ(fireAfter(80), "a1b2c4");
    queue.reset(2);
    queue.remove(77);
    queue.remove(1);
    EXPECT_EQ(fireAfter(90), "Bc5");
    queue.reset(0);
    EXPECT_EQ(fireAfter(99), "c6");
    c.action = [] { return false; };
    EXPECT_EQ(fireAfter(1), "a2c7C");
    queue.remove(0);
    EXPECT_EQ(fireAfter(1000), "A");
    EXPECT_EQ(queue.nextExpire(), INT64_MAX);
}

TEST_F(TimerQueueTest, FiresOnceWhenItFellBehindAndCountsThePeriodFromTheEndOfTheCall) {
    add(a, 100);
    a.action = [this] { return clock.advance(30), true; };
    EXPECT_EQ(fireAfter(1000), "a1");
    EXPECT_EQ(fireAfter(99), "");
    EXPECT_EQ(fireAfter(1), "a2");
}

TEST_F(TimerQueueTest, CallbacksMayAddResetAndRemoveTimers) {
    const int idA = add(a, 10);
    const int idB = add(b, 10);
    const int idC = add(c, 10);
    a.action = [&] {
        add(b, 5);
        queue.remove(idB);
        queue.remove(idA);
        queue.reset(idC);
        return true;
    };
    EXPECT_EQ(fireAfter(10), "a1BA");
    EXPECT_EQ(fireAfter(9), "b1");
    EXPECT_EQ(fireAfter(1), "c1");
}

TEST_F(TimerQueueTest, ClearTellsEveryTimerAndEachMayRemoveTheNextOne) {
    auto next = std::make_unique<JournalTimer>(journal, 'n');
    add(a, 20);
    const int id = add(*next, 10);
    add(b, 10);
    a.onRemoved = [&] {
        queue.remove(id);
        next.reset();
    };
    EXPECT_EQ(queue.clear(), 3);
    EXPECT_EQ(journal, "ANB");
    EXPECT_EQ(queue.clear(), 0);
}

TEST_F(TimerQueueTest, FiresEachOfManyTimersAtItsTime) {
    TimerQueue worn(wakePipe, 2147483631);
    for (const int id : {2147483631, 0}) EXPECT_EQ(worn.add(&a, 10, &a), id);
    std::vector<int> intervals;
    std::minstd_rand random(1);
    for (int i = 0; i < 1000; ++i) {
        intervals.push_back(static_cast<int>(1 + random() % 1000));
        EXPECT_EQ(add(a, intervals.back()), i);
    }
    for (int now = 1; now <= 1000; ++now) {
        const size_t removed = random() % intervals.size();
        queue.remove(static_cast<int>(removed));
        intervals[removed] = 1 << 20;
        const auto due = std::count_if(intervals.begin(), intervals.end(),
                                       [now](int interval) { return now % interval == 0; });
        const std::string fired = fireAfter(1);
        ASSERT_EQ(std::count(fired.begin(), fired.end(), 'a'), due) << "at " << now;
    }
}

TEST_F(TimerQueueTest, RemovalFromAnotherThreadWaitsForACallbackUnderWay) {
    std::atomic<bool> inCallback{false};
    std::atomic<bool> over{false};
    a.action = [&] {
        inCallback = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        over = true;
        return true;
    };
    const int id = add(a, 0);
    std::thread loop([&] { queue.fireDue(tick::now()); });
    while (!inCallback) std::this_thread::yield();
    queue.remove(id);
    EXPECT_TRUE(over);
    loop.join();
}

}  // namespace
}  // namespace vyn
