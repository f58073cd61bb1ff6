// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <ctime>

#include "support/support.h"

namespace vyn::testing {

inline void overflow(Worker& worker) {
    for (int i = 0; i < 101; ++i) worker.queueWritting("x", 1);
}

// A loop on a thread of its own, whose log and whose use of a processor can be looked at.
struct WatchedLoop : ::testing::Test {
    LogCapture log;
    LoopThread loop;
    RecordingExecutor executor;
    std::atomic<int> disconnections{0};

    WatchedLoop() {
        executor.disconnected = [this](Worker*) { ++disconnections; };
    }

    void add(Worker& worker) { loop.connector().addWorkerLocked(&worker, &executor); }
    void remove(Worker& worker) {
        loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
    }
    // Waits until `condition`, judged on the loop's thread, holds.
    [[nodiscard]] bool eventually(const std::function<bool()>& condition) {
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
    bool isSetMadeAnew() {
        return waitUntil([&] { return log.count("elsewhere, epoll set is made anew.") == 1; });
    }

    // Keeps the bytes of its device, and is removed from the loop before it goes.
    struct Served : ReceivedWorker {
        Served(WatchedLoop& owner, Device* device) : ReceivedWorker(device), test(owner) {}
        ~Served() override { test.remove(*this); }

        bool hears(const std::string& text) {
            return test.eventually([&] { return chunks == Strings{text}; });
        }

        WatchedLoop& test;
    };

    // One end of a pair of sockets or of a pipe in the loop; the test holds the other one, `peer`.
    struct Connection {
        explicit Connection(WatchedLoop& owner, std::pair<int, int> ends = makeSocketPair())
            : peer(ends.second), device(ends.first), worker(owner, &device) {
            fcntl(ends.first, F_SETFL, O_NONBLOCK);
            owner.add(worker);
        }
        ~Connection() {
            worker.test.remove(worker);
            for (const int fd : {peer, copy}) close(fd);
        }

        void send(const std::string& text) const {
            EXPECT_EQ(::write(peer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        }
        void hangUp() { close(std::exchange(peer, -1)); }
        // Leaves no room for another byte. Returns how many there are.
        size_t fill() {
            const std::string filler(1 << 20, 'f');
            return static_cast<size_t>(device.write(filler.data(), 1 << 20));
        }
        // Closes the descriptor while a copy of it stays open, and then removes the worker.
        void closeAndRemove() {
            copy = fcntl(device.getFd(), F_DUPFD_CLOEXEC, 0);
            device.closeDescriptor();
            worker.test.remove(worker);
        }
        // Opens another connection under the same number, while a copy of the old one stays open.
        // Returns the former peer.
        int reconnect() {
            copy = fcntl(device.getFd(), F_DUPFD_CLOEXEC, 0);
            const auto others = makeSocketPair();
            EXPECT_EQ(dup3(others.first, device.getFd(), O_CLOEXEC), device.getFd());
            fcntl(device.getFd(), F_SETFL, O_NONBLOCK);
            close(others.first);
            return std::exchange(peer, others.second);
        }

        int peer;
        int copy = -1;
        StreamDevice device;
        Served worker;
    };
};

}  // namespace vyn::testing
