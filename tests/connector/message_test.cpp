#include <gtest/gtest.h>
#include <vyn/message.h>

#include <sstream>

#include "common/tick.h"
#include "connector/message_queue.h"
#include "support/manual_clock.h"
#include "support/recording_executor.h"

namespace vyn {
namespace {

using testing::kLastPositiveTick;
using testing::ManualClock;
using testing::RecordingExecutor;

struct NoCallback : Message::Callback {
    void onMessage(Message) override {}
};

TEST(Message, FactoriesSetTheirFieldsAndLeaveTheOthersZero) {
    int object = 0;
    NoCallback callback;
    const Message full = Message::obtain(5, 1, 2, 3, &object);
    EXPECT_EQ(full.what, 5);
    EXPECT_EQ(full.arg1, 1);
    EXPECT_EQ(full.arg2, 2);
    EXPECT_EQ(full.arg3, 3);
    EXPECT_EQ(full.obj, &object);
    EXPECT_EQ(full.callback, nullptr);

    const Message called = Message::obtain(&callback, 5, 1, 2, &object);
    EXPECT_EQ(called.what, 5);
    EXPECT_EQ(called.arg2, 2);
    EXPECT_EQ(called.arg3, 0);
    EXPECT_EQ(called.callback, &callback);
    EXPECT_EQ(called.when, 0);
    EXPECT_EQ(called.target, nullptr);
}

TEST(Message, PrintsItsFieldsAndItsNewestName) {
    MessageHelper::registerMessage(-77, "OLD");
    MessageHelper::registerMessage(-77, "PING");
    Message message = Message::obtain(-77, 1, -2, 3, &message);
    message.when = 40;
    std::ostringstream expected;
    expected << "Message {what: -77, name: PING, arg1: 1, arg2: -2, arg3: 3, obj: " << &message
             << ", when: 40, callback: " << static_cast<void*>(nullptr) << "}";
    std::ostringstream printed;
    printed << std::hex << message;
    EXPECT_EQ(printed.str(), expected.str());

    message.what = -78;
    printed.str("");
    printed << message;
    EXPECT_NE(printed.str().find("name: (noname), "), std::string::npos);
    EXPECT_EQ(MessageHelper::name(-78), nullptr);
}

TEST(Executor, PostsNothingBeforeItWasAttached) {
    RecordingExecutor executor;
    executor.sendMessage(Message::obtain());
    executor.sendMessageDelayed(Message::obtain(), 10);
}

// The codes of all messages that are due, in the order of delivery.
std::vector<int> takeAllDue(MessageQueue& queue) {
    std::vector<int> codes;
    Message message;
    while (queue.takeDue(message, tick::now())) codes.push_back(message.what);
    return codes;
}

void post(MessageQueue& queue, int what, long delayMs) {
    queue.post(nullptr, Message::obtain(what, 0, 0, nullptr), delayMs);
}

TEST(MessageQueue, DeliversByTickAndThenByPosting) {
    ManualClock clock(1000);
    WakePipe wakePipe;
    MessageQueue queue{wakePipe};
    post(queue, 1, 20);
    post(queue, 2, 10);
    post(queue, 3, 20);
    post(queue, 4, 0);
    post(queue, 5, -5);
    EXPECT_EQ(takeAllDue(queue), (std::vector<int>{5, 4}));
    clock.advance(9);
    EXPECT_EQ(takeAllDue(queue), std::vector<int>{});
    EXPECT_EQ(queue.nextDelayed(), 1010);
    clock.advance(11);
    post(queue, 6, 0);
    post(queue, 7, -10);
    EXPECT_EQ(takeAllDue(queue), (std::vector<int>{2, 7, 1, 3, 6}));
    EXPECT_EQ(queue.nextDelayed(), INT64_MAX);
}

TEST(MessageQueue, StampsTickAndTargetWhateverWasThere) {
    ManualClock clock(kLastPositiveTick);
    WakePipe wakePipe;
    MessageQueue queue{wakePipe};
    RecordingExecutor executor;
    Message message = Message::obtain(1, 0, 0, nullptr);
    message.when = 123;
    queue.post(&executor, message, -1);
    queue.post(&executor, message, 1);
    clock.advance(1);
    Message taken;
    ASSERT_TRUE(queue.takeDue(taken, tick::now()));
    EXPECT_EQ(taken.when, INT32_MAX - 1);
    EXPECT_EQ(taken.target, &executor);
    ASSERT_TRUE(queue.takeDue(taken, tick::now()));
    EXPECT_EQ(taken.when, INT32_MIN);
}

TEST(MessageQueue, KeepsItsOrderAcrossTheWrapOfTheTick) {
    ManualClock clock(kLastPositiveTick - 10);
    WakePipe wakePipe;
    MessageQueue queue{wakePipe};
    post(queue, 1, 30);
    post(queue, 2, 5);
    post(queue, 3, 15);
    post(queue, 4, 0);
    EXPECT_EQ(takeAllDue(queue), std::vector<int>{4});
    clock.advance(16);
    post(queue, 5, 0);
    EXPECT_EQ(takeAllDue(queue), (std::vector<int>{2, 3, 5}));
    clock.advance(13);
    EXPECT_EQ(takeAllDue(queue), std::vector<int>{});
    clock.advance(1);
    EXPECT_EQ(takeAllDue(queue), std::vector<int>{1});
}

TEST(MessageQueue, TakesTheLongestDelaysAsTheyAre) {
    ManualClock clock(0);
    WakePipe wakePipe;
    MessageQueue queue{wakePipe};
    post(queue, 1, INT32_MAX);
    post(queue, 2, INT32_MIN);
    clock.advance(INT32_MAX - 1);
    EXPECT_EQ(takeAllDue(queue), std::vector<int>{2});
    clock.advance(1);
    EXPECT_EQ(takeAllDue(queue), std::vector<int>{1});
}

}  // namespace
}  // namespace vyn
