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
    Epoll epoll;
    WakePipe wakePipe{epoll};
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
    add(b, 500);
    a.action = [this] { return clock.advance(30), true; };
    EXPECT_EQ(fireAfter(1000), "a1b1");  // 900 and 530 milliseconds late
    EXPECT_EQ(fireAfter(99), "");
    EXPECT_EQ(fireAfter(1), "a2");
    LoopFigures figures;
    queue.report(figures);
    EXPECT_EQ(figures.timers, 3u);
    EXPECT_EQ(figures.waitingTimers, 2u);
    EXPECT_EQ(figures.longestLatenessMs, 900);
    EXPECT_EQ(figures.totalLatenessMs, 1430u);
    a.action = []() -> bool { throw 0; };
    EXPECT_THROW(fireAfter(100), int);  // clear() waits for no such call
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

TEST_F(TimerQueueTest, OtherThreadsWaitForACallbackOnlyToRemoveItsTimer) {
    std::promise<void> inCallback;
    std::atomic<bool> over{false};
    const int idA = add(a, 1000);
    const int idB = add(b, 1000);
    a.action = [&] {
        inCallback.set_value();
        EXPECT_TRUE(waitUntil([&] { return queue.nextExpire() == tick::now() + 5; }));
        return over = true;
    };
    clock.advance(1000);
    queue.reset(idB);
    std::thread loop([&] { queue.fireDue(tick::now()); });
    inCallback.get_future().wait();
    queue.remove(add(c, 7));
    queue.setInterval(idB, 5);
    queue.remove(idA);
    EXPECT_TRUE(over);
    EXPECT_EQ(std::exchange(journal, ""), "a1CA");
    loop.join();
    EXPECT_EQ(fireAfter(4), "");
    EXPECT_EQ(fireAfter(1), "b1");
}

TEST_F(TimerQueueTest, TwoLoopsMayRemoveEachOthersTimersInTheirCallbacks) {
    struct Loop {
        Epoll epoll;
        WakePipe pipe{epoll};
        TimerQueue queue{pipe};
        std::string journal;
        std::unique_ptr<JournalTimer> timer = std::make_unique<JournalTimer>(journal, 't');
        int id = queue.add(timer.get(), 0, timer.get());
    } loops[2];
    std::atomic<int> inCallback{0};
    std::atomic<int> removed{0};
    std::thread threads[2];
    for (int i = 0; i < 2; ++i) {
        Loop& own = loops[i];
        Loop& other = loops[1 - i];
        own.timer->action = [&] {
            ++inCallback;
            EXPECT_TRUE(waitUntil([&] { return inCallback == 2; }));
            other.queue.remove(other.id);
            ++removed;
            EXPECT_TRUE(waitUntil([&] { return removed == 2; }));
            return own.journal += '!', true;  // the timer is still there
        };
        own.timer->onRemoved = [&] { own.timer.reset(); };
        threads[i] = std::thread([&own] { own.queue.fireDue(tick::now()); });
    }
    for (int i : {0, 1}) {
        threads[i].join();
        EXPECT_EQ(loops[i].journal, "t1!T");
    }
}

// Removes what is added last to another loop, in its callback, and goes when it is removed.
struct Rival : Timer {
    Rival(Connector& itsOther, std::atomic<int>& itsVictim, std::atomic<int>& toldOf)
        : other(itsOther), victim(itsVictim), told(toldOf) {}
    Connector& other;
    std::atomic<int>& victim;
    std::atomic<int>& told;
    bool onTimer(void* mayEnd, int count) override {
        other.removeTimer(victim);
        return mayEnd == nullptr || count < 3;
    }
    void onTimerRemoved() override {
        ++told;
        delete this;
    }
};

TEST(Timers, AreToldOfTheirEndOnceWhoeverRemovesThemAndNotUsedOnceRemovalHasReturned) {
    constexpr int kEach = 5000;
    std::atomic<int> last[2] = {{-1}, {-1}};
    std::atomic<int> told{0};
    {
        LoopThread loops[2];
        const auto use = [&](unsigned seed) {
            std::minstd_rand random(seed);
            for (int i = 0; i < kEach; ++i) {
                const size_t own = random() % 2;
                Connector& loop = loops[own].connector();
                std::atomic<int> toldOfThis{0};  // gone when the removal has returned
                auto* const timer =
                    new Rival(loops[1 - own].connector(), last[1 - own], toldOfThis);
                const int id = last[own] = loop.addTimer(timer, seed % 2, &told);
                loop.setInterval(id, i % 3);
                if (random() % 8 == 0) std::this_thread::yield();
                loop.removeTimer(id);
                EXPECT_EQ(toldOfThis, 1);
                ++told;
            }
            Connector& loop = loops[0].connector();  // the one that ends last
            loop.addTimer(new Rival(loop, last[0], told), 0, nullptr);
        };
        std::thread others[] = {std::thread(use, 1), std::thread(use, 2), std::thread(use, 3)};
        use(4);
        for (std::thread& other : others) other.join();
    }
    EXPECT_EQ(told, 4 * kEach + 4);
}

}  // namespace
}  // namespace vyn
