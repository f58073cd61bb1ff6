// SPDX-License-Identifier: Apache-2.0

#include <sys/epoll.h>

#include <filesystem>
#include <fstream>

#include "connector/watched_loop.h"

namespace vyn {
namespace {

using namespace testing;

using ConnectorWorkersTest = WatchedLoop;

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

TEST_F(ConnectorWorkersTest, WorkersComeAndGoFromManyThreadsWhileTheLoopServes) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                Connection connection(*this);
                connection.send("x");
                EXPECT_TRUE(connection.worker.hears("x"));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(ConnectorWorkersTest, WatchesTheDescriptorsOfADeviceForReadingOnlyAndThoseItChangesTo) {
    struct Several : FakeDevice {
        Pipe pipes[3];
        std::vector<int> fds{pipes[0].readEnd(), -1, pipes[1].readEnd()};
        std::atomic<int> arrived{-1};
        void onDataArrival(int fd) override { arrived = fd; }
        std::vector<int> getFds() override { return fds; }
        void change() {
            fds = {pipes[2].readEnd()};
            descriptorsChanged();
        }
    } device;
    Served worker(*this, &device);
    add(worker);
    worker.queueWritting("x", 1);
    for (const int arriving : {1, 2}) {
        const Pipe& pipe = device.pipes[arriving];
        EXPECT_EQ(write(pipe.writeEnd(), "x", 1), 1);
        EXPECT_TRUE(waitUntil([&] { return device.arrived == pipe.readEnd(); }));
        for (const Pipe& each : device.pipes) {
            const bool isWatched = (&each == &device.pipes[2]) == (arriving == 2);
            EXPECT_EQ(interestIn(each.readEnd()), isWatched ? EPOLLIN : 0u);
        }
        loop.call([&] { device.change(); });
    }
    remove(worker);
    EXPECT_EQ(interestIn(device.pipes[2].readEnd()), 0u);
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
         << &silent.worker;
    loop.call([&] {
        silent.hangUp();
        talking.send("last words");
        talking.hangUp();
    });
    EXPECT_TRUE(talking.worker.hears("last words"));
    EXPECT_TRUE(eventually([&] { return log.count(line.str()) == 1; }));
    EXPECT_FALSE(silent.worker.isValid());
}

TEST_F(ConnectorWorkersTest, LetsGoOfDescriptorsWhoseWorkersAreNotValid) {
    Connection talking(*this);
    Connection silent(*this, makePipe());
    talking.worker.disable();
    silent.worker.disable();
    talking.send("unheard");
    silent.hangUp();
    for (const std::string& line : {"Error check fd = " + std::to_string(talking.device.getFd()) +
                                        " is not contains in a valid worker, we del in epoll fds.",
                                    "rod Main runing can not find worker events 16 fd " +
                                        std::to_string(silent.device.getFd())}) {
        EXPECT_TRUE(eventually([&] { return log.count(line) == 1; }));
    }
    EXPECT_EQ(interestIn(talking.device.getFd()) | interestIn(silent.device.getFd()), 0u);
}

TEST_F(ConnectorWorkersTest, AReusedDescriptorNumberNeverGetsTheEventOfItsFormerOwner) {
    std::unique_ptr<Connection> both[2];
    std::unique_ptr<Connection> heir;
    // Whichever is served first puts a new, silent connection in the place of the other, whose
    // event waits in the same batch.
    const auto replaceOther = [&](size_t served) {
        if (heir) return;
        const int number = both[1 - served]->device.getFd();
        both[1 - served].reset();
        auto ends = makeSocketPair();
        if (ends.first != number) {
            EXPECT_EQ(dup2(ends.first, number), number);
            close(std::exchange(ends.first, number));
        }
        heir = std::make_unique<Connection>(*this, ends);
    };
    loop.call([&] {
        // Both are readable before the loop looks again.
        for (const size_t i : {0u, 1u}) {
            both[i] = std::make_unique<Connection>(*this);
            both[i]->worker.received = [&, i] { replaceOther(i); };
            both[i]->send("x");
        }
    });
    EXPECT_TRUE(eventually([&] { return heir != nullptr; }));
    loop.call([] {});
    EXPECT_EQ(disconnections, 0);
    heir->send("mine");
    EXPECT_TRUE(heir->worker.hears("mine"));
}

// Its event waits in the batch in which another one's ends it.
TEST_F(ConnectorWorkersTest, GoesOnWatchingAWorkerWhoseEndIsStillToBeReported) {
    executor.disconnected = [](Worker* worker) { worker->dropWrites(), worker->enable(); };
    Connection first(*this), second(*this);
    first.worker.received = [&] { overflow(second.worker); };
    loop.call([&] { first.send("x"), second.send("still here"); });
    EXPECT_TRUE(second.worker.hears("still here"));
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
        if (handled + 1 < connections.size()) overflow(connections[handled + 1]->worker);
        ++handled;
    };
    const auto begin = std::chrono::steady_clock::now();
    overflow(connections[0]->worker);
    EXPECT_TRUE(waitUntil([&] { return handled == connections.size(); }));
    // A loop that waited would be woken by its own timer, five times a second.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
}

TEST_F(ConnectorWorkersTest, HeartbeatsSkipWorkersRemovedDuringTheWalkAndReachThoseAddedInIt) {
    struct ImpatientWorker : Worker {
        using Worker::Worker;
        bool givesUp = false;
        int questions = 0;
        void sendHeartbit(long) override { givesUp ? onDisconnected() : void(); }
        bool hasRemoteTimedout(long sinceLastRead) override {
            return ++questions, sinceLastRead > 300;
        }
    };
    ShiftedClock clock(kLastPositiveTick - 350);  // the tick wraps between two heartbeats
    FakeDevice device;
    std::vector<std::unique_ptr<ImpatientWorker>> workers;
    std::atomic<int> timeouts{0};
    executor.disconnected = [&](Worker* gone) { loop.connector().removeWorkerLocked(gone); };
    const auto addFour = [&] {
        for (int i = 0; i < 4; ++i) {
            workers.push_back(std::make_unique<ImpatientWorker>(&device, nullptr));
            add(*workers.back());
        }
        workers[0]->disable();
        workers[1]->givesUp = true;
    };
    executor.heartbitTimeout = [&](Worker* worker) {
        EXPECT_EQ(worker, workers[2].get());
        EXPECT_EQ(workers[1]->questions, 0) << "its own keep-alive had it removed";
        for (auto& each : workers) loop.connector().removeWorkerLocked(each.get());
        workers.clear();
        if (++timeouts < 3) addFour();
    };
    loop.call(addFour);
    EXPECT_TRUE(waitUntil([&] { return timeouts == 3; }));
}

}  // namespace
}  // namespace vyn
