#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <vyn/connector.h>
#include <vyn/worker.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/fake_device.h"
#include "support/line_protocol.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/manual_clock.h"
#include "support/recording_executor.h"
#include "support/stream_device.h"
#include "support/wait.h"

namespace vyn {
namespace {

using testing::FakeDevice;
using testing::kLastPositiveTick;
using testing::Line;
using testing::LineParser;
using testing::LogCapture;
using testing::LoopThread;
using testing::makeSocketPair;
using testing::RecordingExecutor;
using testing::ShiftedClock;
using testing::StreamDevice;
using testing::waitUntil;

// One end of a socket pair as a connection of the loop; the test holds the other end, `peer`.
struct Connection {
    explicit Connection(std::pair<int, int> ends = makeSocketPair())
        : peer(ends.second), device(ends.first), worker(&device, &parser) {}
    ~Connection() { hangUp(); }

    void send(const std::string& text) {
        EXPECT_EQ(::write(peer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void hangUp() {
        if (peer >= 0) close(std::exchange(peer, -1));
    }

    int peer;
    StreamDevice device;
    LineParser parser;
    Worker worker;
};

// A loop on a thread of its own, and an executor that notes what it hears.
struct ConnectorWorkersTest : ::testing::Test {
    LoopThread loop;
    RecordingExecutor executor;
    std::vector<std::string> commands;
    std::vector<Worker*> disconnected;

    ConnectorWorkersTest() {
        executor.command = [this](Worker*, Command* command) {
            commands.push_back(static_cast<Line*>(command)->text);
        };
        executor.disconnected = [this](Worker* worker) {
            disconnected.push_back(worker);
            loop.connector().removeWorkerLocked(worker);
        };
    }

    void add(Worker& worker) { loop.connector().addWorkerLocked(&worker, &executor); }
    void remove(Worker& worker) {
        loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
    }
    // Waits until `condition`, judged on the loop's thread, holds.
    bool eventually(const std::function<bool()>& condition) {
        return waitUntil([&] {
            bool holds = false;
            loop.call([&] { holds = condition(); });
            return holds;
        });
    }
};

// What epoll watches `fd` for, as the kernel tells; 0 when it does not watch it.
unsigned interestIn(int fd) {
    unsigned found = 0;
    DIR* directory = opendir("/proc/self/fdinfo");
    while (dirent* entry = readdir(directory)) {
        std::ifstream info(std::string("/proc/self/fdinfo/") + entry->d_name);
        for (std::string line; std::getline(info, line);) {
            int watched = -1;
            unsigned events = 0;
            if (std::sscanf(line.c_str(), "tfd: %d events: %x", &watched, &events) == 2 &&
                watched == fd) {
                found = events & (EPOLLIN | EPOLLOUT);
            }
        }
    }
    closedir(directory);
    return found;
}

TEST_F(ConnectorWorkersTest, ServesAConnectionAddedFromAnotherThread) {
    Connection connection;
    add(connection.worker);
    connection.send("one\ntwo\n");
    EXPECT_TRUE(eventually([&] { return commands.size() == 2; }));
    EXPECT_EQ(commands, (std::vector<std::string>{"one", "two"}));
    connection.hangUp();
    EXPECT_TRUE(eventually([&] { return disconnected.size() == 1; }));
    remove(connection.worker);
}

TEST_F(ConnectorWorkersTest, TellsADeviceOnceThatItIsReadyAndRebindsTheExecutorWhenAddedAgain) {
    Connection connection;
    RecordingExecutor second;
    std::atomic<int> heard{0};
    second.command = [&](Worker*, Command*) { ++heard; };
    FakeDevice device;
    Worker worker(&device, nullptr);
    add(worker);
    add(worker);
    EXPECT_EQ(device.readies, 1);
    remove(worker);
    add(worker);
    EXPECT_EQ(device.readies, 2);

    add(connection.worker);
    loop.connector().addWorkerLocked(&connection.worker, &second);
    connection.send("one\n");
    EXPECT_TRUE(waitUntil([&] { return heard == 1; }));
    EXPECT_TRUE(commands.empty());
    remove(connection.worker);
    remove(worker);
}

TEST_F(ConnectorWorkersTest, NoEventComesBeforeTheDeviceIsReady) {
    class SlowDevice : public StreamDevice {
      public:
        using StreamDevice::StreamDevice;
        std::atomic<bool> ready{false};
        std::atomic<int> early{0};
        std::atomic<int> arrivals{0};
        void onReady() override {
            std::this_thread::yield();
            ready = true;
        }
        void onDataArrival(int fd) override {
            if (!ready) ++early;
            BaseDevice::onDataArrival(fd);
            ++arrivals;
        }
    };
    for (int i = 0; i < 200; ++i) {
        const auto ends = makeSocketPair();
        SlowDevice device(ends.first);
        LineParser parser;
        Worker worker(&device, &parser);
        ASSERT_EQ(write(ends.second, "x\n", 2), 2);
        add(worker);
        EXPECT_TRUE(waitUntil([&] { return device.arrivals > 0; }));
        remove(worker);
        close(ends.second);
        ASSERT_EQ(device.early, 0) << "at the " << i << "th";
    }
}

// Has two descriptors and notes which of them were readable.
class TwinDevice : public Device {
  public:
    TwinDevice(int first, int second) : mFds{first, second} {}
    std::vector<int> arrivals;

    void onDataArrival(int fd) override {
        char byte;
        if (::read(fd, &byte, 1) == 1) arrivals.push_back(fd);
    }
    int write(const void*, int len) override { return len; }
    int getFd() override { return -1; }
    std::vector<int> getFds() override { return {mFds[0], -1, mFds[1]}; }

  private:
    int mFds[2];
};

TEST_F(ConnectorWorkersTest, WatchesEveryDescriptorOfADeviceWithSeveralForReadingOnly) {
    const auto first = makeSocketPair();
    const auto second = makeSocketPair();
    TwinDevice device(first.first, second.first);
    Worker worker(&device, nullptr);
    add(worker);
    EXPECT_EQ(interestIn(first.first), static_cast<unsigned>(EPOLLIN));
    EXPECT_EQ(interestIn(second.first), static_cast<unsigned>(EPOLLIN));
    EXPECT_EQ(write(second.second, "x", 1), 1);
    EXPECT_TRUE(eventually([&] { return device.arrivals == std::vector<int>{second.first}; }));

    worker.queueWritting("x", 1);
    loop.call([] {});
    EXPECT_EQ(interestIn(first.first), static_cast<unsigned>(EPOLLIN));
    remove(worker);
    EXPECT_EQ(interestIn(first.first), 0u);
    EXPECT_EQ(interestIn(second.first), 0u);
    for (int fd : {first.first, first.second, second.first, second.second}) close(fd);
}

TEST_F(ConnectorWorkersTest, WatchesForWritingOnlyWhileSomethingWaitsToBeWritten) {
    Connection connection;
    add(connection.worker);
    const int fd = connection.device.getFd();
    std::string filler(1 << 20, 'f');
    const int filled = connection.device.write(filler.data(), static_cast<int>(filler.size()));
    ASSERT_GT(filled, 0);
    ASSERT_LT(filled, 1 << 20);

    connection.worker.queueWritting("end", 3);
    EXPECT_TRUE(waitUntil([&] { return interestIn(fd) == (EPOLLIN | EPOLLOUT); }));
    add(connection.worker);
    EXPECT_EQ(interestIn(fd), static_cast<unsigned>(EPOLLIN | EPOLLOUT));
    std::string received;
    char buffer[4096];
    while (received.size() < static_cast<size_t>(filled) + 3) {
        const ssize_t count = ::read(connection.peer, buffer, sizeof buffer);
        ASSERT_GT(count, 0);
        received.append(buffer, static_cast<size_t>(count));
    }
    EXPECT_EQ(received.substr(received.size() - 4), "fend");
    EXPECT_TRUE(waitUntil([&] { return interestIn(fd) == static_cast<unsigned>(EPOLLIN); }));
    remove(connection.worker);
}

TEST_F(ConnectorWorkersTest, WritesAtOnceToADeviceThatNoDescriptorTellsAboutWriting) {
    FakeDevice device;
    Worker bodiless(&device, nullptr);
    add(bodiless);
    for (int i = 0; i < 150; ++i) {
        bodiless.queueWritting("x", 1);
        EXPECT_TRUE(
            eventually([&] { return device.written.size() == static_cast<size_t>(i + 1); }));
    }
    remove(bodiless);

    class PipeDevice : public StreamDevice {
      public:
        using StreamDevice::StreamDevice;
        std::string written;
        int write(const void* data, int len) override {
            written.append(static_cast<const char*>(data), static_cast<size_t>(len));
            return len;
        }
    };
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    PipeDevice console(ends[0]);
    Worker worker(&console, nullptr);
    add(worker);
    worker.queueWritting("status", 6);
    EXPECT_TRUE(eventually([&] { return console.written == "status"; }));
    EXPECT_EQ(interestIn(ends[0]), static_cast<unsigned>(EPOLLIN));
    remove(worker);
    close(ends[1]);
}

TEST_F(ConnectorWorkersTest, WritesWhatWasQueuedBeforeTheWorkerWasAdded) {
    Connection connection;
    connection.worker.queueWritting("early", 5);
    add(connection.worker);
    char buffer[5];
    EXPECT_EQ(recv(connection.peer, buffer, sizeof buffer, MSG_WAITALL), 5);
    EXPECT_EQ(std::string(buffer, 5), "early");
    remove(connection.worker);
}

TEST_F(ConnectorWorkersTest, HangUpAloneDisconnectsAndHangUpBehindDataIsRead) {
    LogCapture log;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Connection silent({ends[0], ends[1]});
    add(silent.worker);
    const int fd = silent.device.getFd();
    std::ostringstream printed;
    printed << silent.worker;
    silent.hangUp();
    EXPECT_TRUE(eventually([&] { return disconnected.size() == 1; }));
    EXPECT_EQ(log.count("rod Main runing disconnect worker events " + std::to_string(EPOLLHUP) +
                        " fd " + std::to_string(fd) + " worker " + printed.str()),
              1);
    EXPECT_EQ(log.count("read. ret:"), 0);

    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Connection talking({ends[0], ends[1]});
    talking.send("last words\n");
    talking.hangUp();
    add(talking.worker);
    EXPECT_TRUE(eventually([&] { return disconnected.size() == 2; }));
    EXPECT_EQ(commands, std::vector<std::string>{"last words"});
    remove(silent.worker);
    remove(talking.worker);
}

TEST_F(ConnectorWorkersTest, LetsGoOfADescriptorWhoseWorkerIsNotValid) {
    LogCapture log;
    executor.disconnected = nullptr;
    Connection connection;
    Connection other;
    add(connection.worker);
    add(other.worker);
    const std::string fd = std::to_string(connection.device.getFd());
    connection.worker.disable();
    connection.send("unheard\n");
    EXPECT_TRUE(eventually([&] {
        return log.count("Error check fd = " + fd +
                         " is not contains in a valid worker, we del in epoll fds.") == 1;
    }));
    EXPECT_EQ(interestIn(connection.device.getFd()), 0u);
    other.send("heard\n");
    EXPECT_TRUE(eventually([&] { return commands == std::vector<std::string>{"heard"}; }));
    remove(connection.worker);
    remove(other.worker);
}

TEST_F(ConnectorWorkersTest, LetsGoOfAHungUpDescriptorWhoseWorkerIsNotValid) {
    LogCapture log;
    executor.disconnected = nullptr;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Connection connection({ends[0], ends[1]});
    add(connection.worker);
    connection.hangUp();
    EXPECT_TRUE(eventually([&] {
        return log.count("rod Main runing can not find worker events " + std::to_string(EPOLLHUP) +
                         " fd " + std::to_string(ends[0])) == 1;
    }));
    EXPECT_EQ(interestIn(ends[0]), 0u);
    remove(connection.worker);
}

TEST_F(ConnectorWorkersTest, AReusedDescriptorNumberNeverGetsTheEventOfItsFormerOwner) {
    auto first = std::make_unique<Connection>();
    auto second = std::make_unique<Connection>();
    std::unique_ptr<Connection> heir;
    bool replaced = false;
    // Whichever is served first puts a new, silent connection in the place of the other, whose
    // event waits in the same batch.
    executor.command = [&](Worker* worker, Command*) {
        if (replaced) {
            commands.push_back("stray");
            return;
        }
        replaced = true;
        auto& other = worker == &first->worker ? second : first;
        const int number = other->device.getFd();
        loop.connector().removeWorkerLocked(&other->worker);
        other.reset();
        auto ends = makeSocketPair();
        if (ends.first != number) {
            ASSERT_EQ(dup2(ends.first, number), number);
            close(ends.first);
        }
        heir = std::make_unique<Connection>(std::make_pair(number, ends.second));
        loop.connector().addWorkerLocked(&heir->worker, &executor);
    };
    loop.call([&] {
        // Both are readable before the loop looks again.
        first->send("x\n");
        second->send("x\n");
        add(first->worker);
        add(second->worker);
    });
    EXPECT_TRUE(eventually([&] { return replaced; }));
    loop.call([] {});
    EXPECT_TRUE(commands.empty());
    EXPECT_TRUE(disconnected.empty());

    heir->send("mine\n");
    EXPECT_TRUE(eventually([&] { return !commands.empty(); }));
    loop.call([&] {
        if (first) loop.connector().removeWorkerLocked(&first->worker);
        if (second) loop.connector().removeWorkerLocked(&second->worker);
        loop.connector().removeWorkerLocked(&heir->worker);
    });
}

TEST_F(ConnectorWorkersTest, RemovalLeavesTheNewOwnerOfAClosedDescriptorAlone) {
    Connection former;
    add(former.worker);
    const int number = former.device.getFd();
    former.device.closeDescriptor();

    auto ends = makeSocketPair();
    if (ends.first != number) {
        ASSERT_EQ(dup2(ends.first, number), number);
        close(ends.first);
    }
    Connection owner({number, ends.second});
    add(owner.worker);
    remove(former.worker);
    owner.send("still here\n");
    EXPECT_TRUE(eventually([&] { return commands == std::vector<std::string>{"still here"}; }));
    remove(owner.worker);
}

TEST_F(ConnectorWorkersTest, DoesNotSpinOnAClosedDescriptorThatADuplicateKeepsOpen) {
    LogCapture log;
    Connection closed;
    Connection other;
    add(closed.worker);
    add(other.worker);
    const int duplicate = fcntl(closed.device.getFd(), F_DUPFD_CLOEXEC, 0);
    closed.device.closeDescriptor();
    remove(closed.worker);
    closed.send("nobody reads this\n");
    EXPECT_TRUE(eventually([&] { return log.count("epoll set is made anew.") == 1; }));
    other.send("served\n");
    EXPECT_TRUE(eventually([&] { return commands == std::vector<std::string>{"served"}; }));
    EXPECT_EQ(log.count("epoll set is made anew."), 1);
    remove(other.worker);
    close(duplicate);
}

TEST_F(ConnectorWorkersTest, DoesNotSpinOnOneWhoseWorkerIsNotValidEither) {
    LogCapture log;
    executor.disconnected = nullptr;
    Connection closed;
    add(closed.worker);
    const int duplicate = fcntl(closed.device.getFd(), F_DUPFD_CLOEXEC, 0);
    closed.worker.disable();
    closed.device.closeDescriptor();
    closed.send("nobody reads this\n");
    EXPECT_TRUE(eventually([&] { return log.count("epoll set is made anew.") == 1; }));
    loop.call([] {});
    EXPECT_EQ(log.count("is not contains in a valid worker, we del in epoll fds."), 1);
    EXPECT_EQ(log.count("epoll set is made anew."), 1);
    remove(closed.worker);
    close(duplicate);
}

TEST_F(ConnectorWorkersTest, AnOverflowInsideACommandLeavesTheParserAliveUntilItIsOver) {
    auto connection = std::make_unique<Connection>();
    Connection* raw = connection.get();
    executor.command = [&](Worker* worker, Command* command) {
        commands.push_back(static_cast<Line*>(command)->text);
        for (int i = 0; i < 200; ++i) worker->queueWritting("x", 1);
        EXPECT_NE(connection, nullptr);
    };
    executor.disconnected = [&](Worker* worker) {
        disconnected.push_back(worker);
        loop.connector().removeWorkerLocked(worker);
        connection.reset();
    };
    raw->send("one\ntwo\n");
    add(raw->worker);
    EXPECT_TRUE(eventually([&] { return disconnected.size() == 1; }));
    EXPECT_EQ(commands, std::vector<std::string>{"one"});
    EXPECT_EQ(connection, nullptr);
}

TEST_F(ConnectorWorkersTest, MayBeAddedAgainFromAnotherThreadWhileItIsServed) {
    Connection connection;
    RecordingExecutor second;
    std::atomic<int> heard{0};
    executor.command = second.command = [&](Worker*, Command*) { ++heard; };
    add(connection.worker);
    for (int i = 0; i < 200; ++i) {
        connection.send("x\n");
        loop.connector().addWorkerLocked(&connection.worker, i % 2 == 0 ? &second : &executor);
    }
    EXPECT_TRUE(waitUntil([&] { return heard == 200; }));
    remove(connection.worker);
}

TEST_F(ConnectorWorkersTest, AnOverflowOnAnotherThreadDisconnectsOnTheLoopsThread) {
    Connection connection;
    add(connection.worker);
    std::string filler(1 << 20, 'f');
    connection.device.write(filler.data(), static_cast<int>(filler.size()));
    std::thread::id handledOn;
    executor.disconnected = [&](Worker* worker) {
        handledOn = std::this_thread::get_id();
        loop.connector().removeWorkerLocked(worker);
        disconnected.push_back(worker);
    };
    for (int i = 0; i < 101; ++i) connection.worker.queueWritting("x", 1);
    EXPECT_TRUE(eventually([&] { return disconnected.size() == 1; }));
    std::thread::id loopThread;
    loop.call([&] { loopThread = std::this_thread::get_id(); });
    EXPECT_EQ(handledOn, loopThread);
}

TEST_F(ConnectorWorkersTest, AnOverflowThatAnotherOneCausesIsSeenToWithoutWaiting) {
    std::vector<Connection> connections(80);
    std::atomic<size_t> handled{0};
    const auto overflow = [](Connection& connection) {
        for (int i = 0; i < 101; ++i) connection.worker.queueWritting("x", 1);
    };
    executor.disconnected = [&](Worker* worker) {
        loop.connector().removeWorkerLocked(worker);
        const size_t next = handled + 1;
        if (next < connections.size()) overflow(connections[next]);
        handled = next;
    };
    const std::string filler(1 << 20, 'f');
    for (Connection& connection : connections) {
        connection.device.write(filler.data(), static_cast<int>(filler.size()));
        add(connection.worker);
    }
    const auto begin = std::chrono::steady_clock::now();
    overflow(connections[0]);
    EXPECT_TRUE(waitUntil([&] { return handled == connections.size(); }));
    // A loop that waited would be woken by its own timer, five times a second.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
}

TEST_F(ConnectorWorkersTest, WorkersComeAndGoFromManyThreadsWhileTheLoopServes) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            std::atomic<int> heard{0};
            RecordingExecutor own;
            own.command = [&](Worker*, Command*) { ++heard; };
            for (int i = 0; i < 50; ++i) {
                Connection connection;
                loop.connector().addWorkerLocked(&connection.worker, &own);
                connection.send("x\n");
                EXPECT_TRUE(waitUntil([&] { return heard == i + 1; }));
                remove(connection.worker);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// Finds its peer silent after 100 ms.
class ImpatientWorker : public Worker {
  public:
    using Worker::Worker;
    std::atomic<int> checks{0};
    bool hasRemoteTimedout(long sinceLastRead) override {
        ++checks;
        return sinceLastRead > 100;
    }
};

TEST(ConnectorHeartbeat, SkipsWorkersThatWereRemovedDuringTheWalk) {
    // The tick wraps while the heartbeats are counted.
    ShiftedClock clock(kLastPositiveTick - 250);
    LoopThread loop;
    RecordingExecutor executor;
    FakeDevice device;
    std::vector<std::unique_ptr<ImpatientWorker>> workers;
    for (int i = 0; i < 3; ++i)
        workers.push_back(std::make_unique<ImpatientWorker>(&device, nullptr));
    std::atomic<int> timeouts{0};
    executor.heartbitTimeout = [&](Worker* worker) {
        ++timeouts;
        EXPECT_EQ(worker, workers[0].get());
        loop.connector().removeWorkerLocked(worker);
        loop.connector().removeWorkerLocked(workers[1].get());
        workers[0].reset();
        workers[1].reset();
    };
    workers[2]->disable();
    loop.call([&] {
        for (auto& worker : workers) loop.connector().addWorkerLocked(worker.get(), &executor);
    });
    EXPECT_TRUE(waitUntil([&] { return timeouts == 1; }));
    EXPECT_TRUE(waitUntil([] { return tick::now() > kLastPositiveTick + 300; }));
    loop.call([&] { loop.connector().removeWorkerLocked(workers[2].get()); });
    EXPECT_EQ(workers[2]->checks, 0);
    EXPECT_EQ(timeouts, 1);
}

TEST_F(ConnectorWorkersTest, DumpsItsWorkersInTheOrderOfAddition) {
    FakeDevice device;
    Worker first(&device, nullptr);
    Worker second(&device, nullptr);
    add(second);
    add(first);
    std::ostringstream printed;
    loop.call([&] { printed << loop.connector(); });
    std::ostringstream expected;
    expected << "Workers: [Worker(" << static_cast<void*>(&second) << "), Worker("
             << static_cast<void*>(&first) << ")]}";
    EXPECT_NE(printed.str().find(expected.str()), std::string::npos) << printed.str();
    remove(first);
    remove(second);
}

}  // namespace
}  // namespace vyn
