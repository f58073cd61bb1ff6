#include <gtest/gtest.h>
#include <vyn/connector.h>
#include <vyn/message.h>
#include <vyn/timer.h>

#include <atomic>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/descriptors.h"
#include "support/fatal_capture.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/manual_clock.h"
#include "support/recording_executor.h"
#include "support/wait.h"

namespace vyn {
namespace {

using testing::FatalCapture;
using testing::kLastPositiveTick;
using testing::LogCapture;
using testing::LoopThread;
using testing::RecordingExecutor;
using testing::ShiftedClock;
using testing::waitUntil;

class FunctionTimer : public Timer {
  public:
    explicit FunctionTimer(std::function<bool(int)> function) : mFunction(std::move(function)) {}
    int removed = 0;
    bool onTimer(void*, int count) override { return mFunction(count); }
    void onTimerRemoved() override { ++removed; }

  private:
    std::function<bool(int)> mFunction;
};

// Runs a loop on the calling thread until one of the callbacks stops it.
struct ConnectorTest : ::testing::Test {
    std::vector<std::unique_ptr<FunctionTimer>> timers;  // outlive the connector that holds them
    Connector connector;
    RecordingExecutor executor;

    ConnectorTest() { connector.attach(&executor); }

    FunctionTimer& addTimer(long intervalMs, std::function<bool(int)> function) {
        timers.push_back(std::make_unique<FunctionTimer>(std::move(function)));
        connector.addTimer(timers.back().get(), intervalMs, nullptr);
        return *timers.back();
    }
    void post(int what, long delayMs = 0) {
        executor.sendMessageDelayed(Message::obtain(what, 0, 0, nullptr), delayMs);
    }
};

// Checks that messages numbered 0, 1, 2, ... come in this order, and stops the loop at the last.
struct Countdown {
    Countdown(ConnectorTest& test, int messages) {
        test.executor.message = [this, &test, messages](Message message) {
            if (message.what != received) ++misplaced;
            if (++received == messages) test.connector.stop();
        };
    }
    int received = 0;
    int misplaced = 0;
};

TEST_F(ConnectorTest, DeliversMoreMessagesThanAPipeHoldsPostedBeforeItRuns) {
    constexpr int kMessages = 65537;
    Countdown countdown(*this, kMessages);
    for (int i = 0; i < kMessages; ++i) post(i);
    connector.run();
    EXPECT_EQ(countdown.received, kMessages);
    EXPECT_EQ(countdown.misplaced, 0);
}

TEST_F(ConnectorTest, DeliversAMillionMessagesPostedFromItsOwnHandler) {
    constexpr int kMessages = 1000000;
    Countdown countdown(*this, kMessages);
    const auto count = executor.message;
    executor.message = [&](Message message) {
        if (message.what == 0) {
            for (int i = 1; i < kMessages; ++i) post(i);
        }
        count(message);
    };
    post(0);
    connector.run();
    EXPECT_EQ(countdown.received, kMessages);
    EXPECT_EQ(countdown.misplaced, 0);
}

TEST_F(ConnectorTest, DeliversAMillionMessagesOfOneThreadWhileItRuns) {
    constexpr int kMessages = 1000000;
    Countdown countdown(*this, kMessages);
    std::thread poster([&] {
        for (int i = 0; i < kMessages; ++i) post(i);
    });
    connector.run();
    poster.join();
    EXPECT_EQ(countdown.received, kMessages);
    EXPECT_EQ(countdown.misplaced, 0);
}

TEST_F(ConnectorTest, DeliversAMillionMessagesOfFourThreadsEachInItsOrder) {
    constexpr int kEach = 250000;
    std::vector<int> next(4, 0);
    int received = 0;
    int misplaced = 0;
    executor.message = [&](Message message) {
        if (next[static_cast<size_t>(message.what)]++ != message.arg1) ++misplaced;
        if (++received == 4 * kEach) connector.stop();
    };
    std::vector<std::thread> posters;
    for (int poster = 0; poster < 4; ++poster) {
        posters.emplace_back([this, poster] {
            for (int i = 0; i < kEach; ++i) {
                executor.sendMessage(Message::obtain(poster, i, 0, nullptr));
            }
        });
    }
    connector.run();
    for (std::thread& poster : posters) poster.join();
    EXPECT_EQ(received, 4 * kEach);
    EXPECT_EQ(misplaced, 0);
}

TEST_F(ConnectorTest, DeliversOneMessageATurnAndFiresDueTimersInEachTurn) {
    std::string journal;
    addTimer(0, [&](int) {
        journal += 't';
        return true;
    });
    executor.message = [&](Message message) {
        journal += static_cast<char>('0' + message.what);
        if (message.what == 3) connector.stop();
    };
    for (int what = 1; what <= 3; ++what) post(what);
    connector.run();
    EXPECT_EQ(journal, "t1t2t3");
}

TEST_F(ConnectorTest, DeliversADelayedMessageNoEarlierThanItsTick) {
    const long posted = tick::toTick(tick::now());
    long delivered = 0;
    executor.message = [&](Message message) {
        delivered = tick::toTick(tick::now());
        EXPECT_EQ(message.target, &executor);
        EXPECT_GE(delivered - message.when, 0);
        connector.stop();
    };
    post(1, 30);
    connector.run();
    EXPECT_GE(delivered - posted, 30);
}

TEST_F(ConnectorTest, GivesAMessageToItsCallbackInsteadOfItsExecutor) {
    struct Callback : Message::Callback {
        std::vector<int> codes;
        void onMessage(Message message) override { codes.push_back(message.what); }
    } callback;
    std::vector<int> executed;
    executor.message = [&](Message message) {
        executed.push_back(message.what);
        connector.stop();
    };
    executor.sendMessage(Message::obtain(&callback, 1, 0, 0, nullptr));
    post(2);
    connector.run();
    EXPECT_EQ(callback.codes, std::vector<int>{1});
    EXPECT_EQ(executed, std::vector<int>{2});
}

TEST_F(ConnectorTest, LogsAMessageForNobody) {
    LogCapture log;
    connector.sendMessageDelayed(nullptr, Message::obtain(9, 0, 0, nullptr), 0);
    executor.message = [this](Message) { connector.stop(); };
    post(1);
    connector.run();
    EXPECT_EQ(log.count("nobody handle message: Message {what: 9, name: (noname), arg1: 0, "), 1);
}

TEST_F(ConnectorTest, StillDeliversToADetachedExecutor) {
    bool delivered = false;
    executor.message = [&](Message) {
        delivered = true;
        connector.stop();
    };
    connector.detach(&executor);
    post(1);
    connector.run();
    EXPECT_TRUE(delivered);
}

TEST_F(ConnectorTest, RefusesToAttachTwiceOrToDetachAStranger) {
    FatalCapture fatal;
    RecordingExecutor stranger;
    connector.attach(&executor);
    connector.detach(&stranger);
    std::ostringstream attached;
    attached << "An executor should not be attached twice! " << static_cast<void*>(&executor);
    std::ostringstream detached;
    detached << "No such executor! " << static_cast<void*>(&stranger);
    EXPECT_EQ(fatal.count(attached.str()), 1);
    EXPECT_EQ(fatal.count(detached.str()), 1);
    EXPECT_EQ(fatal.lines().size(), 2u);
}

TEST_F(ConnectorTest, IsTheOnlyOneOfItsThreadUntilItIsDestroyed) {
    FatalCapture fatal;
    executor.message = [this](Message) {
        EXPECT_EQ(Connector::current(), &connector);
        Connector second;
        second.run();
        connector.stop();
    };
    post(1);
    EXPECT_EQ(Connector::current(), nullptr);
    connector.run();
    EXPECT_EQ(fatal.count("only one connector is allowed on each thread."), 1);
}

TEST_F(ConnectorTest, RunsAgainstAStopThatCameBeforeIt) {
    connector.stop();
    bool delivered = false;
    executor.message = [&](Message) {
        delivered = true;
        connector.stop();
    };
    post(1);
    connector.run();
    EXPECT_TRUE(delivered);
}

TEST_F(ConnectorTest, EndsTheTurnInWhichItIsStoppedAndDropsWhatWaits) {
    int delivered = 0;
    executor.message = [&](Message) {
        ++delivered;
        connector.stop();
    };
    post(1);
    post(2);
    connector.run();
    EXPECT_EQ(delivered, 1);
}

TEST(ConnectorThreads, ServesOtherThreadsUntilOneOfThemStopsIt) {
    Connector* loop = nullptr;
    std::atomic<bool> running{false};
    std::thread thread([&] {
        Connector connector;
        RecordingExecutor executor;
        executor.message = [&](Message) { running = true; };
        connector.attach(&executor);
        executor.sendMessage(Message::obtain());
        loop = &connector;
        connector.run();
        EXPECT_EQ(Connector::current(), &connector);
    });
    EXPECT_TRUE(waitUntil([&] { return running.load(); }));
    EXPECT_EQ(Connector::current(), nullptr);
    loop->stop();
    thread.join();
}

TEST_F(ConnectorTest, NumbersTimersFromOneBehindItsOwn) {
    FunctionTimer& timer = addTimer(1000, [](int) { return true; });
    EXPECT_EQ(connector.addTimer(&timer, 1000, nullptr), 2);
    connector.removeTimer(1);
    EXPECT_EQ(timer.removed, 1);
    connector.resetTimer(77);
    connector.removeTimer(77);
    EXPECT_EQ(timer.removed, 1);
}

TEST_F(ConnectorTest, FiresATimerUntilItReturnsFalse) {
    std::vector<int> counts;
    FunctionTimer& timer = addTimer(5, [&](int count) {
        counts.push_back(count);
        if (count < 3) return true;
        connector.stop();
        return false;
    });
    connector.run();
    EXPECT_EQ(counts, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(timer.removed, 1);
}

TEST(ConnectorThreads, FiresATimerAddedByAnotherThreadDuringItsWait) {
    LoopThread loop;
    std::atomic<int> fired{0};
    FunctionTimer timer([&](int) {
        ++fired;
        return false;
    });
    loop.connector().addTimer(&timer, 1, nullptr);
    EXPECT_TRUE(waitUntil([&] { return fired == 1; }));
    loop.call([] {});
    EXPECT_EQ(timer.removed, 1);
}

TEST(ConnectorLifetime, TellsItsTimersWhenItIsDestroyed) {
    LogCapture log;
    FunctionTimer timer([](int) { return true; });
    {
        Connector connector;
        connector.addTimer(&timer, 10, nullptr);
    }
    EXPECT_EQ(timer.removed, 1);
    EXPECT_EQ(log.count("2 timers cleared."), 1);
    EXPECT_EQ(log.count("addFdToFdSet, fd:"), 1);
    EXPECT_EQ(log.count(", tickpipe"), 1);
}

TEST(ConnectorLifetime, TellsWhatItCouldNotOpen) {
    // The undefined-behaviour sanitizer opens descriptors for classes that it has not met.
    { const Connector known; }
    LogCapture log;
    FatalCapture fatal;
    {
        const testing::ExhaustedDescriptors exhausted;
        const Connector connector;
    }
    EXPECT_EQ(log.count("[24] Too many open files. epoll_create1 fail."), 1);
    EXPECT_EQ(log.count("[24] Too many open files. pipe fail."), 1);
    EXPECT_EQ(fatal.count("mEpollFd < 0 !!!!"), 1);
}

TEST_F(ConnectorTest, DumpsItsStateInOneLine) {
    std::ostringstream printed;
    printed << connector << &connector;
    const std::string text = printed.str();
    EXPECT_EQ(text.substr(0, 27), "LinuxConnector: {Pointer: 0");
    const std::string tail = ", Executors: 1, Loading: 0, Workers: []}";
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    EXPECT_EQ(text.substr(0, text.size() / 2), text.substr(text.size() / 2));
}

TEST_F(ConnectorTest, ScalesItsLoadingIntoTheRange) {
    LogCapture log;
    EXPECT_EQ(connector.getLoading(), 0);
    connector.setLoadingRange(20, 70);
    EXPECT_EQ(connector.getLoading(), 20);
    EXPECT_EQ(log.count("update loading range to [20, 70]."), 1);

    FatalCapture fatal;
    connector.setLoadingRange(50, 50);
    EXPECT_EQ(fatal.count("Check failed. (empty < full)"), 1);
    EXPECT_EQ(connector.getLoading(), 20);
}

TEST_F(ConnectorTest, ReportsALoopThatWorksAsBusy) {
    connector.setLoadingRange(1000, 1100);
    int loading = 0;
    addTimer(1, [&](int count) {
        const int64_t until = tick::nanoseconds() + 20000000;
        while (tick::nanoseconds() < until) {
        }
        if (count == 5) {
            loading = connector.getLoading();
            connector.stop();
        }
        return true;
    });
    connector.run();
    EXPECT_GT(loading, 1000);
    EXPECT_LE(loading, 1100);
}

TEST_F(ConnectorTest, RunsOnAcrossTheWrapOfTheTick) {
    constexpr int64_t kStart = kLastPositiveTick - 60;
    ShiftedClock clock(kStart);
    std::vector<int> delivered;
    int fired = 0;
    int slowFired = 0;
    executor.message = [&](Message message) {
        delivered.push_back(message.what);
        if (message.what == 3) connector.stop();
    };
    addTimer(10, [&](int) { return ++fired > 0; });
    addTimer(80, [&](int) { return ++slowFired > 0; });
    post(3, 300);
    post(2, 100);
    post(1, 20);
    connector.run();
    EXPECT_EQ(delivered, (std::vector<int>{1, 2, 3}));
    const int64_t elapsed = tick::now() - kStart;
    EXPECT_GE(elapsed, 300);
    EXPECT_GE(fired, 1);
    EXPECT_LE(fired, elapsed / 10);
    EXPECT_GE(slowFired, 1);
    EXPECT_LE(slowFired, elapsed / 80);
}

}  // namespace
}  // namespace vyn
