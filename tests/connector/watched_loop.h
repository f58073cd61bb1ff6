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

    // One end of a socket pair, whose bytes are kept; the test holds the other one, `peer`.
    struct Connection {
        explicit Connection(WatchedLoop& owner) : test(owner) {
            fcntl(ends.first, F_SETFL, O_NONBLOCK);
            test.add(worker);
        }
        ~Connection() {
            test.remove(worker);
            for (const int fd : {peer, copy}) close(fd);
        }

        void send(const std::string& text) const {
            EXPECT_EQ(::write(peer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        }
        bool hears(const std::string& text) {
            return waitUntil([&] {
                Strings chunks;
                test.loop.call([&] { chunks = worker.chunks; });
                return chunks == Strings{text};
            });
        }
        // Closes the descriptor while a copy of it stays open, and then removes the worker.
        void closeAndRemove() {
            copy = fcntl(device.getFd(), F_DUPFD_CLOEXEC, 0);
            device.closeDescriptor();
            test.remove(worker);
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

        WatchedLoop& test;
        const std::pair<int, int> ends = makeSocketPair();
        int peer = ends.second;
        int copy = -1;
        StreamDevice device{ends.first};
        ReceivedWorker worker{&device};
    };
};

}  // namespace vyn::testing
