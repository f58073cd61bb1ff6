// SPDX-License-Identifier: Apache-2.0

#include <optional>

#include "connector/watched_loop.h"

// What a loop remembers of a worker ends with the worker's registration, and what it remembers of a
// descriptor with the descriptor's.

namespace vyn {
namespace {

using namespace testing;

using RegistrationTest = WatchedLoop;

TEST_F(RegistrationTest, AnOverflowIsNeitherTakenForThatOfAnotherWorkerAtTheSameAddressNorLost) {
    FakeDevice device;
    std::optional<Worker> worker(std::in_place, &device, nullptr);
    loop.call([&] {
        add(*worker);
        overflow(*worker);
        remove(*worker);
        worker.emplace(&device, nullptr);
        add(*worker);
    });
    loop.call([] {});
    EXPECT_TRUE(worker->isValid());
    EXPECT_EQ(disconnections, 0);

    // Told at once of a worker that is not registered, and not again when it is.
    remove(*worker);
    overflow(*worker);
    EXPECT_EQ(disconnections, 1);
    add(*worker);
    loop.call([] {});
    EXPECT_EQ(disconnections, 1);
    remove(*worker);
}

TEST(RegistrationInALoopThatEnds, OverflowsOfTheLastTurnAreTold) {
    Connector connector;
    RecordingExecutor executor;
    connector.attach(&executor);
    FakeDevice device;
    Worker workers[2]{{&device, nullptr}, {&device, nullptr}};
    std::vector<Worker*> told;
    executor.disconnected = [&](Worker* worker) {
        told.push_back(worker);
        if (worker == &workers[0]) overflow(workers[1]);
    };
    executor.message = [&](const Message&) {
        overflow(workers[0]);
        connector.stop();
    };
    for (Worker& worker : workers) connector.addWorkerLocked(&worker, &executor);
    executor.sendMessage(Message::obtain());
    connector.run();
    EXPECT_EQ(told, (std::vector<Worker*>{&workers[0], &workers[1]}));
}

TEST_F(RegistrationTest, AWorkerThatIsNotReadyIsListedButNeitherServedNorSpunOn) {
    // Lets the test look while onReady() runs.
    struct SlowlyReady : StreamDevice {
        using StreamDevice::StreamDevice;
        std::function<void()> meanwhile;
        std::atomic<bool> ready{false};
        void onReady() override {
            meanwhile();
            ready = true;
        }
        int write(const void* data, int len) override {
            EXPECT_TRUE(ready);
            return StreamDevice::write(data, len);
        }
    };
    const auto ends = makeSocketPair();
    SlowlyReady device(ends.first);
    Served worker(*this, &device);
    worker.received = [&] { EXPECT_TRUE(device.ready); };
    ASSERT_EQ(write(ends.second, "early", 5), 5);
    device.meanwhile = [&] {
        worker.queueWritting("answer", 6);
        EXPECT_LT(busyMs(), 100);
        std::string dumped;
        loop.call([&] { dumped = printed(loop.connector()); });
        EXPECT_NE(dumped.find("Workers: [Worker(0x"), std::string::npos) << dumped;
    };
    add(worker);
    char answer[6];
    EXPECT_EQ(recv(ends.second, answer, sizeof answer, MSG_WAITALL), 6);
    EXPECT_TRUE(worker.hears("early"));
    remove(worker);

    device.meanwhile = [&] {
        overflow(worker);
        loop.call([] {});
        EXPECT_EQ(disconnections, 0);
    };
    add(worker);
    EXPECT_TRUE(waitUntil([&] { return disconnections == 1; }));
    close(ends.second);
}

TEST_F(RegistrationTest, DoesNotSpinOnAClosedDescriptorThatCouldBeWrittenTo) {
    Connection closed(*this);
    std::string bytes(closed.fill(), 'f');
    closed.worker.queueWritting("x", 1);
    for (int i = 0; i < 2; ++i) loop.call([] {});  // which leaves it with an interest in writing
    closed.closeAndRemove();
    while (recv(closed.peer, &bytes[0], bytes.size(), MSG_DONTWAIT) > 0) continue;
    EXPECT_TRUE(isSetMadeAnew());
    EXPECT_LT(busyMs(), 100);
}

TEST_F(RegistrationTest, AWorkerThatReconnectsGetsNoEventOfItsFormerDescriptor) {
    Connection connection(*this);
    Connection other(*this);
    int formerPeer = -1;
    other.worker.received = [&] {
        formerPeer = connection.reconnect();
        add(connection.worker);
    };
    loop.call([&] {
        // The end of the one waits behind the other's bytes, in the same batch.
        other.send("go");
        shutdown(connection.peer, SHUT_RDWR);
    });
    EXPECT_TRUE(isSetMadeAnew());
    EXPECT_EQ(disconnections, 0);
    connection.send("new");
    EXPECT_TRUE(connection.worker.hears("new"));
    close(formerPeer);
}

TEST_F(RegistrationTest, ASetThatIsMadeAnewDoesNotWatchWhatHasTakenAClosedNumber) {
    Connection closed(*this);
    Connection replaced(*this);
    Connection other(*this);
    const int formerPeer = replaced.reconnect();  // which the loop is not told
    replaced.send("private");
    closed.closeAndRemove();
    closed.send("nobody reads this");
    EXPECT_TRUE(isSetMadeAnew());
    other.send("served");
    EXPECT_TRUE(other.worker.hears("served"));
    EXPECT_TRUE(replaced.worker.chunks.empty());
    close(formerPeer);
}

}  // namespace
}  // namespace vyn
