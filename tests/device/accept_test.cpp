// SPDX-License-Identifier: Apache-2.0

// What accepting does when the process is out of descriptors, or the kernel refuses otherwise.

#include <sys/syscall.h>

#include <algorithm>
#include <list>

#include "support/support.h"
#include "support/transports.h"

static std::atomic<int> gAcceptError{0};

// Takes the place of the C library's: fails with that error, unless it is 0.
extern "C" int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    if (gAcceptError == 0)
        return static_cast<int>(syscall(SYS_accept4, fd, address, length, flags));
    errno = gAcceptError;
    return -1;
}

namespace vyn {
namespace {

using namespace testing;

// A listener with connections that wait to be accepted.
struct Backlog {
    explicit Backlog(size_t size) {
        while (clients.size() < size) clients.push_back(Tcp4Transport().client(listener));
        EXPECT_TRUE(awaitReadable(listener.fd()));
    }
    // Accepts until nobody waits, as a loop does. Returns how many were accepted to stay.
    int drain() {
        int kept = 0;
        pollfd entry{listener.fd(), POLLIN, 0};
        while (poll(&entry, 1, 0) == 1) kept += listener.accept().isValid();
        return kept;
    }
    bool allHungUp() {
        char byte = 0;
        return std::all_of(clients.begin(), clients.end(),
                           [&](Socket& client) { return client.recv(&byte, 1, 10000) == 0; });
    }

    ListenerDevice device{0, "127.0.0.1"};
    Socket& listener = device.socket();
    std::vector<Socket> clients;
};

TEST(AcceptWithoutDescriptors, HangsUpOnThePeersWithALineASecondAtMost) {
    using Clock = std::chrono::steady_clock;
    Backlog backlog(60);
    LogCapture log;
    const auto lines = [&] { return log.count("[24] Too many open files. accept. hung up"); };
    {
        ExhaustedDescriptors exhausted;
        const auto start = Clock::now();
        for (int i = 0; i < 40 && lines() == 0; ++i) {
            EXPECT_FALSE(backlog.listener.accept().isValid());
            EXPECT_EQ(errno, EMFILE);
            // A line of an earlier test may be less than a second ago.
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
        }
        EXPECT_EQ(lines(), 1);
        EXPECT_FALSE(ListenerDevice().listen(0, "127.0.0.1"));
        EXPECT_EQ(errno, EMFILE);
        EXPECT_EQ(backlog.drain(), 0);
        EXPECT_LE(lines(), 2 + (Clock::now() - start) / std::chrono::seconds(1));
    }
    EXPECT_TRUE(backlog.allHungUp());
}

TEST(AcceptWithoutDescriptors, ThreadsDoNotTakeTheReserveFromEachOther) {
    allowDescriptors(4096);
    std::list<Backlog> backlogs;
    for (int i = 0; i < 4; ++i) backlogs.emplace_back(400);
    {
        ExhaustedDescriptors none;
        std::vector<std::thread> threads;
        for (Backlog& backlog : backlogs) {
            threads.emplace_back([&] { EXPECT_EQ(backlog.drain(), 0); });
        }
        for (std::thread& thread : threads) thread.join();
    }
    for (Backlog& backlog : backlogs) EXPECT_TRUE(backlog.allHungUp());
}

TEST(ListenerDevice, WaitsWhileAcceptingFailsAndListensElsewhereInALoop) {
    ListenerDevice device(0, "127.0.0.1");
    Worker worker(&device, nullptr);
    RecordingExecutor executor;
    std::atomic<int> accepted{0}, failed{0};
    executor.newConnection = [&](Worker*, int, void* data) {
        ++(static_cast<const Socket*>(data)->isValid() ? accepted : failed);
    };
    LoopThread loop;
    loop.connector().addWorkerLocked(&worker, &executor);
    for (const int error : {ENOBUFS, EAGAIN}) {
        LogCapture capture;
        gAcceptError = error;
        const int before = failed;
        Socket client(Socket::TCP);
        ASSERT_TRUE(client.connect("127.0.0.1", device.socket().getHostPort()));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_TRUE(failed > before && failed < before + 1000) << failed;
        EXPECT_LE(capture.count("accept. no connection could be taken at fd"), 1);
        gAcceptError = 0;
        EXPECT_TRUE(waitUntil([&] { return accepted > 0; }));
        accepted = 0;
        const Socket copy(device.socket());  // keeps the former socket open
        loop.call([&] { EXPECT_TRUE(device.listen(0, "127.0.0.1")); });
    }
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

}  // namespace
}  // namespace vyn
