// SPDX-License-Identifier: Apache-2.0

#include <vyn/diagnoser.h>
#include <vyn/loop_figures.h>

#include <tuple>

#include "common/tick.h"
#include "connector/message_queue.h"
#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

struct FunctionTimer : Timer {
    explicit FunctionTimer(std::function<bool(int)> toCall) : function(std::move(toCall)) {}
    std::function<bool(int)> function;
    int removed = 0;
    bool onTimer(void*, int count) override { return function(count); }
    void onTimerRemoved() override { ++removed; }
};

// Runs a loop on the calling thread until one of the callbacks stops it.
struct ConnectorTest : ::testing::Test {
    std::vector<std::unique_ptr<FunctionTimer>> timers;  // outlive the connector that holds them
    Connector connector;
    RecordingExecutor executor;

    ConnectorTest() { connector.attach(&executor); }

    FunctionTimer& addTimer(long intervalMs, std::function<bool(int)> function) {
        timers.push_back(std::make_unique<FunctionTimer>(std::move(function)));
        const int id = connector.addTimer(timers.back().get(), intervalMs, nullptr);
        EXPECT_EQ(id, static_cast<int>(timers.size()));  // 0 is the connector's own
        return *timers.back();
    }
    void post(int what, long delayMs = 0) {
        executor.sendMessageDelayed(Message::obtain(what, 0, 0, nullptr), delayMs);
    }
};

TEST_F(ConnectorTest, DeliversTheMessagesOfEachThreadInTheirOrder) {
    // More than a pipe holds: before it runs, from its own handler and from two other threads.
    constexpr int kEach = 100000;
    int next[4] = {};
    int received = 0;
    int misplaced = 0;
    const auto postAll = [&](int source) {
        for (int i = 0; i < kEach; ++i) executor.sendMessage(Message::obtain(source, i, 0, this));
    };
    executor.message = [&](Message message) {
        if (received == 0) postAll(1);
        misplaced += next[message.what]++ != message.arg1;
        if (++received == 4 * kEach) connector.stop();
    };
    postAll(0);
    std::thread first(postAll, 2);
    std::thread second(postAll, 3);
    connector.run();
    first.join();
    second.join();
    EXPECT_EQ(misplaced, 0);
}

TEST_F(ConnectorTest, DeliversOneMessageATurnAndFiresDueTimersInEachTurn) {
    std::string journal;
    addTimer(0, [&](int) {
        journal += 't';
        return true;
    });
    executor.message = [&](Message message) {
        journal += std::to_string(message.what);
        if (message.what == 3) connector.stop();
    };
    const FunctionTimer& other = addTimer(0, [](int) { return false; });
    connector.removeTimer(2);
    EXPECT_EQ(other.removed, 1);
    for (int what = 1; what <= 4; ++what) post(what);
    connector.stop();  // forgotten when it begins to run
    connector.run();
    EXPECT_EQ(journal, "t1t2t3");
}

TEST_F(ConnectorTest, GivesAMessageToItsCallbackOrItsExecutorOrTellsThatItIsForNobody) {
    struct Callback : Message::Callback {
        void onMessage(Message message) override { EXPECT_EQ(message.what, 1); }
    } callback;
    LogCapture log;
    FatalCapture fatal;
    MessageHelper::registerMessage(2, "PING");
    const int64_t start = tick::now();
    EXPECT_EQ(Connector::current(), nullptr);
    executor.message = [&](Message message) {
        EXPECT_EQ(message.what, 3);
        EXPECT_EQ(Connector::current(), &connector);
        Connector().run();
        connector.stop();
    };
    connector.detach(&executor);
    post(3, 30);
    executor.sendMessage(Message::obtain(&callback, 1, 0, 0, nullptr));
    connector.sendMessageDelayed(nullptr, Message::obtain(2, 4, 5, nullptr), 0);
    connector.run();
    EXPECT_GE(tick::now() - start, 30);
    EXPECT_EQ(log.count("nobody handle message: Message {what: 2, name: PING, arg1: 4, arg2: 5, "),
              1);
    EXPECT_EQ(fatal.count("only one connector is allowed on each thread."), 1);
}

TEST_F(ConnectorTest, ServesDescriptorsBesideAHandlerThatPostsToItselfWhenItIsFair) {
    const auto [fd, peer] = makeSocketPair();
    struct Stopping : StreamDevice {
        using StreamDevice::StreamDevice;
        void onDataArrival(int) override { Connector::current()->stop(); }
    } device(fd);
    Worker worker(&device, nullptr);
    connector.addWorkerLocked(&worker, &executor);
    EXPECT_EQ(write(peer, "x", 1), 1);
    int turns = 0;
    executor.message = [&](Message) { ++turns, post(0); };
    post(0);
    connector.setFairness(10);
    connector.run();
    EXPECT_EQ(turns, 10);
    connector.removeWorkerLocked(&worker);
    close(peer);
}

TEST_F(ConnectorTest, TellsItsTimersWhenItIsDestroyedAndWhatItCouldNotOpenOrUse) {
    LogCapture log;
    FatalCapture fatal;
    FunctionTimer timer([](int) { return true; });
    {
        Connector known;
        known.addTimer(&timer, 10, nullptr);
        known.setLoadingRange(50, 50);
        const ExhaustedDescriptors exhausted;
        const Connector broken;
    }
    EXPECT_EQ(timer.removed, 1);
    EXPECT_EQ(log.count("2 timers cleared."), 1);
    EXPECT_EQ(log.count("[24] Too many open files. epoll_create1 fail."), 1);
    EXPECT_EQ(log.count("[24] Too many open files. pipe fail."), 1);
    EXPECT_EQ(fatal.count("mEpollFd < 0 !!!!") + fatal.count("Check failed. (empty < full)"), 2);
}

TEST_F(ConnectorTest, CountsWhatItDoesAndTellsOfCallbacksBeyondTheLimit) {
    LogCapture log;
    MessageHelper::registerMessage(2, "SLOW");
    size_t waiting = 0;
    executor.message = [&](Message message) {
        if (message.what == 1) waiting = connector.figures().waitingMessages;
        if (message.what == 2) std::this_thread::sleep_for(std::chrono::milliseconds(200));
        if (message.what == 3) connector.stop();
    };
    for (int what : {1, 2, 2, 3, 4}) post(what);
    post(5, 100000);
    connector.setCallbackLimit(100);
    connector.run();
    LoopFigures figures = connector.figures();
    EXPECT_EQ(waiting, 5u);
    EXPECT_EQ(figures.turns, 4u);
    EXPECT_EQ(figures.messages, 4u);
    EXPECT_GE(figures.slowCallbacks, 2u);
    EXPECT_GE(figures.longestCallbackUs, 200000);
    EXPECT_EQ(figures.longestCallback, "onMessage of 2 SLOW");
    EXPECT_EQ(log.count(" ms by onMessage of 2 SLOW"), 1);
    figures = {};
    figures.longestCallback = "onTimer of 3";
    EXPECT_EQ(printed(figures),
              "LoopFigures: {turns: 0, events: 0, messages: 0, timers: 0, lateness: 0 ms of 0 ms, "
              "waiting: 0 messages 0 timers, workers: 0, loading: 0, slow callbacks: 0, longest: "
              "0 us onTimer of 3}");
}

TEST(Diagnoser, CountsTheTimeBeforeEachWaitAsBusyWithinTheLastMarks) {
    Diagnoser diagnoser(3);
    for (const auto& [awake, time, percent] : {std::tuple(true, 5u, 0),
                                               {false, 5, 0},
                                               {true, 1000, 0},
                                               {false, 1002, 0},
                                               {true, 1004, 50},
                                               {false, 1005, 33}}) {
        diagnoser.record(awake, time);
        EXPECT_EQ(diagnoser.busyPercent(), percent) << "at " << time;
    }
}

// The tick wraps ten milliseconds after it begins.
TEST(MessageQueue, DeliversByTickAndThenByPosting) {
    ManualClock clock{kLastPositiveTick - 10};
    Epoll epoll;
    WakePipe wakePipe{epoll};
    MessageQueue queue{wakePipe};
    const auto post = [&](int what, long delayMs) {
        queue.post(nullptr, Message::obtain(what, 0, 0, nullptr), delayMs);
    };
    long lastTick = 0;
    // The codes of all messages that are due then, in the order of delivery.
    const auto takeAfter = [&](int64_t milliseconds) {
        clock.advance(milliseconds);
        std::vector<int> codes;
        while (const auto taken = queue.takeDue(tick::now())) {
            codes.push_back(taken->message().what);
            lastTick = taken->message().when;
        }
        return codes;
    };
    const long delays[] = {0, -5, 20, 10, 20};
    for (int what = 0; what < 5; ++what) post(what, delays[what]);
    EXPECT_EQ(takeAfter(0), (std::vector<int>{1, 0}));
    EXPECT_EQ(takeAfter(9), std::vector<int>{});
    EXPECT_EQ(queue.nextDelayed(), kLastPositiveTick);
    queue.cancel(queue.post([] {}, 0));  // what it leaves hides nothing behind it
    post(9, 0);
    clock.advance(11);
    post(5, 0);
    post(6, -10);
    EXPECT_EQ(takeAfter(0), (std::vector<int>{9, 3, 6, 2, 4, 5}));
    EXPECT_EQ(lastTick, INT32_MIN + 9);
    EXPECT_EQ(queue.nextDelayed(), INT64_MAX);
    post(7, INT32_MAX);
    post(8, INT32_MIN);
    EXPECT_EQ(takeAfter(INT32_MAX - 1), std::vector<int>{8});
    EXPECT_EQ(takeAfter(1), std::vector<int>{7});
}

}  // namespace
}  // namespace vyn
