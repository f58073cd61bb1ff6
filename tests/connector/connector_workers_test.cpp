// SPDX-License-Identifier: Apache-2.0

#include <sys/epoll.h>

#include <filesystem>
#include <fstream>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

std::pair<int, int> makePipe() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    return {ends[0], ends[1]};
}

// What epoll watches `fd` for, as the kernel tells; 0 when it does not watch it.
unsigned interestIn(int fd) {
    unsigned found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream info(entry.path());
        for (std::string line; std::getline(info, line);) {
            int watched = -1;
            unsigned events = 0;
            const int read = std::sscanf(line.c_str(), "tfd: %d events: %x", &watched, &events);
            if (read == 2 && watched == fd) found = events & (EPOLLIN | EPOLLOUT);
        }
    }
    return found;
}

// A loop on a thread of its own, and an executor that notes what it hears.
struct ConnectorWorkersTest : ::testing::Test {
    LogCapture log;
    LoopThread loop;
    RecordingExecutor executor;
    Strings commands;
    std::vector<Worker*> disconnected;

    ConnectorWorkersTest() {
        executor.command = [this](Worker*, Command* command) {
            commands.push_back(static_cast<Line*>(command)->text);
        };
        executor.disconnected = [this](Worker* worker) { disconnected.push_back(worker); };
    }

    void add(Worker& worker) { loop.connector().addWorkerLocked(&worker, &executor); }
    // Waits until `condition`, judged on the loop's thread, holds.
    bool eventually(const std::function<bool()>& condition) {
        return waitUntil([&] {
            bool holds = false;
            loop.call([&] { holds = condition(); });
            return holds;
        });
    }
    bool hears(const std::string& text) {
        return eventually([&] { return commands == Strings{text}; });
    }
};

// A worker that is removed from its loop before it goes, wherever that is.
struct Served : Worker {
    Served(ConnectorWorkersTest& test, Device* device, Parser* parser = nullptr)
        : Worker(device, parser), loop(test.loop) {}
    ~Served() override { remove(); }
    void remove() {
        const auto removal = [this] { loop.connector().removeWorkerLocked(this); };
        Connector::current() == &loop.connector() ? removal() : loop.call(removal);
    }
    LoopThread& loop;
};

// One end of a socket pair as a connection of the loop; the test holds the other end, `peer`.
struct Connection {
    explicit Connection(ConnectorWorkersTest& test, std::pair<int, int> ends = makeSocketPair())
        : peer(ends.second), device(ends.first), worker(test, &device, &parser) {
        test.add(worker);
    }
    ~Connection() { hangUp(); }

    void send(const std::string& text) {
        EXPECT_EQ(::write(peer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void hangUp() {
        if (peer >= 0) close(std::exchange(peer, -1));
    }
    // Leaves no room for another byte. Returns how many there are.
    size_t fill() {
        const std::string filler(1 << 20, 'f');
        return static_cast<size_t>(device.write(filler.data(), 1 << 20));
    }
    void overflow() {
        for (int i = 0; i < 101; ++i) worker.queueWritting("x", 1);
    }

    int peer;
    StreamDevice device;
    LineParser parser;
    Served worker;
};

// A socket pair whose first end has the number of a descriptor that was closed.
std::pair<int, int> makeSocketPairAt(int number) {
    auto ends = makeSocketPair();
    if (ends.first == number) return ends;
    EXPECT_EQ(dup2(ends.first, number), number);
    close(ends.first);
    return {number, ends.second};
}

TEST_F(ConnectorWorkersTest, WorkersComeAndGoFromManyThreadsWhileTheLoopServes) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            std::atomic<int> heard{0};
            RecordingExecutor own;
            own.command = [&](Worker*, Command*) { ++heard; };
            for (int i = 0; i < 50; ++i) {
                Connection connection(*this);
                loop.connector().addWorkerLocked(&connection.worker, &own);
                connection.send("x\n");
                EXPECT_TRUE(waitUntil([&] { return heard == i + 1; }));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(ConnectorWorkersTest, WatchesEveryDescriptorOfADeviceWithSeveralForReadingOnly) {
    struct TwinDevice : FakeDevice {
        Pipe pipes[2];
        std::atomic<int> arrived{-1};
        void onDataArrival(int fd) override { arrived = fd; }
        std::vector<int> getFds() override { return {pipes[0].readEnd(), -1, pipes[1].readEnd()}; }
    } device;
    Served worker(*this, &device);
    add(worker);
    EXPECT_EQ(write(device.pipes[1].writeEnd(), "x", 1), 1);
    EXPECT_TRUE(waitUntil([&] { return device.arrived == device.pipes[1].readEnd(); }));
    worker.queueWritting("x", 1);
    loop.call([] {});
    for (const Pipe& pipe : device.pipes) EXPECT_EQ(interestIn(pipe.readEnd()), EPOLLIN);
    worker.remove();
    for (const Pipe& pipe : device.pipes) EXPECT_EQ(interestIn(pipe.readEnd()), 0u);
}

TEST_F(ConnectorWorkersTest, WatchesForWritingOnlyWhileSomethingWaitsToBeWritten) {
    Connection connection(*this);
    const int fd = connection.device.getFd();
    std::string received(connection.fill() + 3, '\0');
    connection.worker.queueWritting("end", 3);
    EXPECT_TRUE(waitUntil([&] { return interestIn(fd) == (EPOLLIN | EPOLLOUT); }));
    add(connection.worker);
    EXPECT_EQ(interestIn(fd), EPOLLIN | EPOLLOUT);
    EXPECT_EQ(recv(connection.peer, received.data(), received.size(), MSG_WAITALL),
              static_cast<ssize_t>(received.size()));
    EXPECT_EQ(received.substr(received.size() - 4), "fend");
    EXPECT_TRUE(waitUntil([&] { return interestIn(fd) == EPOLLIN; }));
}

TEST_F(ConnectorWorkersTest, WritesAtOnceToADeviceThatNoDescriptorTellsAboutWriting) {
    struct PipeDevice : FakeDevice {
        int fd = -1;
        int getFd() override { return fd; }
    } device;
    Pipe pipe;
    for (const int fd : {-1, pipe.readEnd()}) {
        device.fd = fd;
        device.written.clear();
        Served worker(*this, &device);
        worker.queueWritting("x", 1);  // before it is added, too
        add(worker);
        for (size_t i = 1; i <= 150; ++i) {
            EXPECT_TRUE(eventually([&] { return device.written.size() == i; }));
            worker.queueWritting("x", 1);
        }
    }
}

TEST_F(ConnectorWorkersTest, HangUpAloneDisconnectsAndHangUpBehindDataIsRead) {
    Connection silent(*this, makePipe());
    Connection talking(*this, makePipe());
    std::ostringstream line;
    line << "rod Main runing disconnect worker events 16 fd " << silent.device.getFd() << " worker "
         << silent.worker;
    loop.call([&] {
        silent.hangUp();
        talking.send("last words\n");
        talking.hangUp();
    });
    EXPECT_TRUE(hears("last words"));
    EXPECT_TRUE(eventually([&] { return log.count(line.str()) == 1; }));
    EXPECT_EQ(std::count(disconnected.begin(), disconnected.end(), &silent.worker), 1);
}

TEST_F(ConnectorWorkersTest, LetsGoOfDescriptorsWhoseWorkersAreNotValid) {
    Connection talking(*this);
    Connection silent(*this, makePipe());
    talking.worker.disable();
    silent.worker.disable();
    talking.send("unheard\n");
    silent.hangUp();
    for (const std::string& line : {"Error check fd = " + std::to_string(talking.device.getFd()) +
                                        " is not contains in a valid worker, we del in epoll fds.",
                                    "rod Main runing can not find worker events 16 fd " +
                                        std::to_string(silent.device.getFd())}) {
        EXPECT_TRUE(eventually([&] { return log.count(line) == 1; }));
    }
    EXPECT_EQ(interestIn(talking.device.getFd()), 0u);
    EXPECT_EQ(interestIn(silent.device.getFd()), 0u);
}

TEST_F(ConnectorWorkersTest, AReusedDescriptorNumberNeverGetsTheEventOfItsFormerOwner) {
    std::unique_ptr<Connection> both[2];
    std::unique_ptr<Connection> heir;
    // Whichever is served first puts a new, silent connection in the place of the other, whose
    // event waits in the same batch.
    executor.command = [&](Worker* worker, Command* command) {
        commands.push_back(static_cast<Line*>(command)->text);
        if (heir) return;
        auto& other = both[worker == &both[0]->worker ? 1 : 0];
        const int number = other->device.getFd();
        other.reset();
        heir = std::make_unique<Connection>(*this, makeSocketPairAt(number));
    };
    loop.call([&] {
        // Both are readable before the loop looks again.
        for (auto& connection : both) {
            connection = std::make_unique<Connection>(*this);
            connection->send("x\n");
        }
    });
    EXPECT_TRUE(hears("x"));
    loop.call([] {});
    EXPECT_TRUE(disconnected.empty());
    heir->send("mine\n");
    EXPECT_TRUE(eventually([&] { return commands == Strings{"x", "mine"}; }));
}

TEST_F(ConnectorWorkersTest, OverflowsDisconnectOnTheLoopsThreadWithoutWaiting) {
    std::vector<std::unique_ptr<Connection>> connections;
    for (int i = 0; i < 80; ++i) {
        connections.push_back(std::make_unique<Connection>(*this));
        connections.back()->fill();
    }
    std::atomic<size_t> handled{0};
    // Each overflow causes the next.
    executor.disconnected = [&](Worker* worker) {
        EXPECT_EQ(Connector::current(), &loop.connector());
        loop.connector().removeWorkerLocked(worker);
        if (handled + 1 < connections.size()) connections[handled + 1]->overflow();
        ++handled;
    };
    const auto begin = std::chrono::steady_clock::now();
    connections[0]->overflow();
    EXPECT_TRUE(waitUntil([&] { return handled == connections.size(); }));
    // A loop that waited would be woken by its own timer, five times a second.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
}

TEST_F(ConnectorWorkersTest, HeartbeatsSkipWorkersThatWereRemovedDuringTheWalk) {
    struct ImpatientWorker : Worker {
        using Worker::Worker;
        bool hasRemoteTimedout(long sinceLastRead) override { return sinceLastRead > 300; }
    };
    ShiftedClock clock(kLastPositiveTick - 350);  // the tick wraps between two heartbeats
    FakeDevice device;
    std::vector<std::unique_ptr<ImpatientWorker>> workers;
    std::atomic<int> timeouts{0};
    executor.heartbitTimeout = [&](Worker* worker) {
        EXPECT_EQ(worker, workers[1].get());
        for (auto& each : workers) loop.connector().removeWorkerLocked(each.get());
        workers.clear();
        ++timeouts;
    };
    loop.call([&] {
        for (int i = 0; i < 3; ++i) {
            workers.push_back(std::make_unique<ImpatientWorker>(&device, nullptr));
            add(*workers.back());
        }
        workers[0]->disable();
    });
    EXPECT_TRUE(waitUntil([&] { return timeouts > 0; }));
}

}  // namespace
}  // namespace vyn
