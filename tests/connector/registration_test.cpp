#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <vyn/connector.h>
#include <vyn/worker.h>

#include <atomic>
#include <ctime>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/support.h"

// What a loop remembers of a worker ends with the worker's registration, and what it remembers of a
// descriptor with the descriptor's.

namespace vyn {
namespace {

using testing::FakeDevice;
using testing::LogCapture;
using testing::LoopThread;
using testing::makeSocketPair;
using testing::ReceivedWorker;
using testing::RecordingExecutor;
using testing::StreamDevice;
using testing::waitUntil;

void overflow(Worker& worker) {
    for (int i = 0; i < 101; ++i) worker.queueWritting("x", 1);
}

// One end of a socket pair as a worker that keeps what it reads; the test holds `peer`.
struct Connection {
    explicit Connection(std::pair<int, int> ends = makeSocketPair())
        : device(ends.first), worker(&device), peer(ends.second) {
        fcntl(ends.first, F_SETFL, O_NONBLOCK);
    }
    ~Connection() { close(peer); }

    void send(const char* text) {
        EXPECT_EQ(::write(peer, text, strlen(text)), static_cast<ssize_t>(strlen(text)));
    }
    // Opens another connection under the number of this one, whose peer is returned.
    int reconnect() {
        const auto ends = makeSocketPair();
        EXPECT_EQ(dup3(ends.first, device.getFd(), O_CLOEXEC), device.getFd());
        close(ends.first);
        fcntl(device.getFd(), F_SETFL, O_NONBLOCK);
        return ends.second;
    }

    StreamDevice device;
    ReceivedWorker worker;
    int peer;
};

struct RegistrationTest : ::testing::Test {
    LogCapture log;
    LoopThread loop;
    RecordingExecutor executor;
    std::atomic<int> disconnections{0};

    RegistrationTest() {
        executor.disconnected = [this](Worker*) { ++disconnections; };
    }

    void add(Worker& worker) { loop.connector().addWorkerLocked(&worker, &executor); }
    void remove(Worker& worker) {
        loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
    }
    bool eventually(const std::function<bool()>& condition) {
        return waitUntil([&] {
            bool holds = false;
            loop.call([&] { holds = condition(); });
            return holds;
        });
    }
    // Milliseconds of a processor that the loop's thread takes in a fifth of a second.
    long busyMs() {
        const auto used = [this] {
            timespec time{};
            loop.call([&] { clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time); });
            return time.tv_sec * 1000 + time.tv_nsec / 1000000;
        };
        const long before = used();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return used() - before;
    }
    bool setIsMadeAnew() {
        return eventually([&] { return log.count("epoll set is made anew.") == 1; });
    }
};

TEST_F(RegistrationTest, AnOverflowIsNotTakenForThatOfAnotherWorkerAtTheSameAddress) {
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
    remove(*worker);
}

TEST_F(RegistrationTest, AnOverflowOfAWorkerThatIsNotRegisteredIsToldAtOnceAndOnce) {
    FakeDevice device;
    Worker worker(&device, nullptr);
    add(worker);
    remove(worker);
    overflow(worker);
    EXPECT_EQ(disconnections, 1);
    add(worker);
    loop.call([] {});
    EXPECT_EQ(disconnections, 1);
    remove(worker);
}

TEST(RegistrationOfALoopThatEnds, TellsOfTheOverflowsOfItsLastTurn) {
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

// Lets the test look while onReady() runs.
class SlowlyReadyDevice : public StreamDevice {
  public:
    using StreamDevice::StreamDevice;
    std::function<void()> meanwhile;
    std::atomic<bool> ready{false};
    std::atomic<int> early{0};

    void onReady() override {
        meanwhile();
        ready = true;
    }
    int write(const void* data, int len) override {
        if (!ready) ++early;
        return StreamDevice::write(data, len);
    }
    int read(char* buf, int len) override {
        if (!ready) ++early;
        return StreamDevice::read(buf, len);
    }
};

TEST_F(RegistrationTest, AWorkerThatIsNotReadyIsListedButNeitherReadNorWrittenNorSpunOn) {
    const auto ends = makeSocketPair();
    SlowlyReadyDevice device(ends.first);
    ReceivedWorker worker(&device);
    ASSERT_EQ(write(ends.second, "early", 5), 5);
    device.meanwhile = [&] {
        worker.queueWritting("answer", 6);
        EXPECT_LT(busyMs(), 100);
        std::ostringstream printed;
        loop.call([&] { printed << loop.connector(); });
        EXPECT_NE(printed.str().find("Workers: [Worker(0x"), std::string::npos) << printed.str();
    };
    add(worker);
    EXPECT_TRUE(eventually([&] { return worker.chunks == std::vector<std::string>{"early"}; }));
    char answer[6];
    EXPECT_EQ(recv(ends.second, answer, sizeof answer, MSG_WAITALL), 6);
    EXPECT_EQ(device.early, 0);
    remove(worker);
    close(ends.second);
}

TEST_F(RegistrationTest, AnOverflowOfAWorkerThatIsNotReadyWaitsUntilItIs) {
    const auto ends = makeSocketPair();
    SlowlyReadyDevice device(ends.first);
    Worker worker(&device, nullptr);
    device.meanwhile = [&] {
        overflow(worker);
        loop.call([] {});
        EXPECT_EQ(disconnections, 0);
    };
    add(worker);
    EXPECT_TRUE(eventually([&] { return disconnections == 1; }));
    remove(worker);
    close(ends.second);
}

TEST_F(RegistrationTest, DoesNotSpinOnAClosedDescriptorThatCouldBeWrittenTo) {
    Connection closed;
    const std::string filler(1 << 20, 'f');
    closed.device.write(filler.data(), static_cast<int>(filler.size()));
    add(closed.worker);
    closed.worker.queueWritting("x", 1);
    loop.call([] {});  // which leaves it with an interest in writing
    loop.call([] {});
    const int duplicate = fcntl(closed.device.getFd(), F_DUPFD_CLOEXEC, 0);
    closed.device.closeDescriptor();
    remove(closed.worker);
    std::string taken(1 << 20, '\0');
    while (recv(closed.peer, &taken[0], taken.size(), MSG_DONTWAIT) > 0) continue;
    EXPECT_TRUE(setIsMadeAnew());
    EXPECT_LT(busyMs(), 100);
    close(duplicate);
}

TEST_F(RegistrationTest, AWorkerThatReconnectsGetsNoEventOfItsFormerDescriptor) {
    Connection other;
    Connection worker;
    const int duplicate = fcntl(worker.device.getFd(), F_DUPFD_CLOEXEC, 0);
    int newPeer = -1;
    // Served first, while the other's end of stream waits in the same batch.
    struct Reconnecting : Worker {
        using Worker::Worker;
        std::function<void()> reconnect;
        bool handledBeforeParser(const void*, int) override { return reconnect(), true; }
    } trigger(&other.device, nullptr);
    trigger.reconnect = [&] {
        newPeer = worker.reconnect();
        add(worker.worker);
    };
    loop.call([&] {
        add(trigger);
        add(worker.worker);
        other.send("go");
        shutdown(worker.peer, SHUT_RDWR);
    });
    EXPECT_TRUE(setIsMadeAnew());
    EXPECT_EQ(disconnections, 0);
    EXPECT_EQ(write(newPeer, "new", 3), 3);
    EXPECT_TRUE(
        eventually([&] { return worker.worker.chunks == std::vector<std::string>{"new"}; }));
    remove(trigger);
    remove(worker.worker);
    close(duplicate);
    close(newPeer);
}

TEST_F(RegistrationTest, ASetThatIsMadeAnewDoesNotWatchWhatHasTakenAClosedNumber) {
    Connection closed;
    Connection lingering;
    Connection other;
    for (Connection* connection : {&closed, &lingering, &other}) add(connection->worker);
    const int stranger = lingering.reconnect();  // which the loop is not told
    ASSERT_EQ(write(stranger, "private", 7), 7);
    const int duplicate = fcntl(closed.device.getFd(), F_DUPFD_CLOEXEC, 0);
    closed.device.closeDescriptor();
    remove(closed.worker);
    closed.send("nobody reads this");
    EXPECT_TRUE(setIsMadeAnew());
    other.send("served");
    EXPECT_TRUE(eventually([&] { return !other.worker.chunks.empty(); }));
    EXPECT_TRUE(lingering.worker.chunks.empty());
    remove(lingering.worker);
    remove(other.worker);
    close(duplicate);
    close(stranger);
}

TEST_F(RegistrationTest, WatchesTheDescriptorThatADeviceChangesToWhileItIsAttached) {
    struct ChangingDevice : FakeDevice {
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
    ASSERT_EQ(write(first.second, "x", 1), 1);
    ASSERT_EQ(write(second.second, "x", 1), 1);
    EXPECT_TRUE(eventually([&] { return !device.arrivals.empty(); }));
    EXPECT_EQ(device.arrivals, std::vector<int>{second.first});
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
    loop.call([&] { loop.connector().detach(&executor); });
    loop.call([] {});
}

}  // namespace
}  // namespace vyn
