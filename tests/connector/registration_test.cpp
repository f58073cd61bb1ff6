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
        loop.connector().removeWorkerLocked(&*worker);
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
    Worker first(&device, nullptr);
    Worker second(&device, nullptr);
    std::vector<Worker*> told;
    executor.disconnected = [&](Worker* worker) {
        told.push_back(worker);
        if (worker == &first) overflow(second);
    };
    executor.message = [&](const Message&) {
        overflow(first);
        connector.stop();
    };
    connector.addWorkerLocked(&first, &executor);
    connector.addWorkerLocked(&second, &executor);
    executor.sendMessage(Message::obtain());
    connector.run();
    EXPECT_EQ(told, (std::vector<Worker*>{&first, &second}));
}

TEST_F(RegistrationTest, AWorkerThatIsNotReadyIsListedButNeitherServedNorSpunOn) {
    // Lets the test look while onReady() runs.
    struct SlowlyReady : StreamDevice {
        using StreamDevice::StreamDevice;
        std::function<void()> meanwhile;
        std::atomic<bool> ready{false};
        std::atomic<int> early{0};
        void onReady() override {
            meanwhile();
            ready = true;
        }
        int write(const void* data, int len) override {
            early += !ready;
            return StreamDevice::write(data, len);
        }
        int read(char* buf, int len) override {
            early += !ready;
            return StreamDevice::read(buf, len);
        }
    };
    const auto ends = makeSocketPair();
    SlowlyReady device(ends.first);
    ReceivedWorker worker(&device);
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
    EXPECT_TRUE(waitUntil([&] {
        size_t chunks = 0;
        loop.call([&] { chunks = worker.chunks.size(); });
        return chunks == 1;
    }));
    EXPECT_EQ(device.early, 0);
    remove(worker);

    device.meanwhile = [&] {
        overflow(worker);
        loop.call([] {});
        EXPECT_EQ(disconnections, 0);
    };
    add(worker);
    EXPECT_TRUE(waitUntil([&] { return disconnections == 1; }));
    remove(worker);
    close(ends.second);
}

TEST_F(RegistrationTest, DoesNotSpinOnAClosedDescriptorThatCouldBeWrittenTo) {
    Connection closed(*this);
    std::string bytes(1 << 20, 'f');
    closed.device.write(bytes.data(), static_cast<int>(bytes.size()));
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
    struct Reconnecting : Worker {
        using Worker::Worker;
        std::function<void()> reconnect;
        bool handledBeforeParser(const void*, int) override { return reconnect(), true; }
    } trigger(&other.device, nullptr);
    int formerPeer = -1;
    trigger.reconnect = [&] {
        formerPeer = connection.reconnect();
        add(connection.worker);
    };
    loop.call([&] {
        add(trigger);
        // The end of the one waits behind the other's bytes, in the same batch.
        other.send("go");
        shutdown(connection.peer, SHUT_RDWR);
    });
    EXPECT_TRUE(isSetMadeAnew());
    EXPECT_EQ(disconnections, 0);
    connection.send("new");
    EXPECT_TRUE(connection.hears("new"));
    remove(trigger);
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
    EXPECT_TRUE(other.hears("served"));
    EXPECT_TRUE(replaced.worker.chunks.empty());
    close(formerPeer);
}

TEST_F(RegistrationTest, WatchesTheDescriptorThatADeviceChangesToWhileItIsAttached) {
    struct Changing : FakeDevice {
        int fd = -1;
        std::vector<int> arrivals;
        int getFd() override { return fd; }
        void onDataArrival(int arrived) override {
            char byte;
            if (read(arrived, &byte, 1) == 1) arrivals.push_back(arrived);
        }
        void change(int to) {
            fd = to;
            descriptorsChanged();
        }
    } device;
    const auto first = makeSocketPair();
    const auto second = makeSocketPair();
    device.fd = first.first;
    Worker worker(&device, nullptr);
    add(worker);
    loop.call([&] { device.change(second.first); });
    for (const int peer : {first.second, second.second}) ASSERT_EQ(write(peer, "x", 1), 1);
    std::vector<int> arrivals;
    EXPECT_TRUE(waitUntil([&] {
        loop.call([&] { arrivals = device.arrivals; });
        return !arrivals.empty();
    }));
    EXPECT_EQ(arrivals, std::vector<int>{second.first});
    remove(worker);
    for (int fd : {first.first, first.second, second.first, second.second}) close(fd);
}

TEST_F(RegistrationTest, AKeepAliveThatHasTheWorkerRemovedIsNotFollowedByATimeOut) {
    struct GivingUp : Worker {
        using Worker::Worker;
        std::atomic<int> questions{0};
        void sendHeartbit(long) override { onDisconnected(); }
        bool hasRemoteTimedout(long) override { return ++questions > 0; }
    };
    FakeDevice device;
    GivingUp worker(&device, nullptr);
    executor.disconnected = [&](Worker* gone) {
        loop.connector().removeWorkerLocked(gone);
        ++disconnections;
    };
    add(worker);
    EXPECT_TRUE(waitUntil([&] { return disconnections == 1; }));
    loop.call([] {});
    EXPECT_EQ(worker.questions, 0);
    worker.enable();
    worker.checkHeartbit();  // of one that is not registered, nothing is left out
    EXPECT_EQ(worker.questions, 1);
}

TEST_F(RegistrationTest, AnExecutorMayPostOnAnyThreadWhileItIsAttached) {
    std::atomic<int> heard{0};
    executor.message = [&](const Message&) { ++heard; };
    std::thread poster([&] {
        EXPECT_TRUE(waitUntil([&] {
            executor.sendMessage(Message::obtain());
            return heard > 0;
        }));
    });
    loop.call([&] { loop.connector().attach(&executor); });
    poster.join();
    loop.call([&] { loop.connector().detach(&executor); });  // behind the last message
}

}  // namespace
}  // namespace vyn
