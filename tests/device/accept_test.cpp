// What accepting does when the process is out of descriptors.

#include <gtest/gtest.h>
#include <vyn/socket.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>
#include <vector>

#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/transports.h"

namespace vyn {
namespace {

using testing::ExhaustedDescriptors;
using testing::LogCapture;
using testing::Tcp4Transport;

constexpr char kLine[] = "[24] Too many open files. accept. hung up";

bool isHungUp(Socket& client) {
    char byte = 0;
    return client.recv(&byte, 1, 10000) == 0;
}

// A listener with connections that wait to be accepted.
struct Backlog {
    explicit Backlog(int size) : listener(Tcp4Transport().listener()) {
        for (int i = 0; i < size; ++i) clients.push_back(Tcp4Transport().client(listener));
    }

    // Accepts until nobody waits, as a loop does. Returns how many were accepted to stay.
    int drain() {
        int kept = 0;
        pollfd entry{listener.fd(), POLLIN, 0};
        while (poll(&entry, 1, 0) == 1) kept += listener.accept().isValid();
        return kept;
    }

    Socket listener;
    std::vector<Socket> clients;
};

TEST(AcceptWithoutDescriptors, HangsUpOnThePeerAndLeavesNoneWaiting) {
    Backlog backlog(3);
    {
        ExhaustedDescriptors exhausted;
        EXPECT_FALSE(backlog.listener.accept().isValid());
        EXPECT_EQ(errno, EMFILE);
        EXPECT_TRUE(isHungUp(backlog.clients[0]));
        EXPECT_EQ(backlog.drain(), 0);
    }
    for (Socket& client : backlog.clients) EXPECT_TRUE(isHungUp(client));

    Socket client = Tcp4Transport().client(backlog.listener);
    ASSERT_TRUE(testing::awaitReadable(backlog.listener.fd()));
    EXPECT_TRUE(backlog.listener.accept().isValid());
}

TEST(AcceptWithoutDescriptors, LogsAtMostOneLineASecond) {
    using Clock = std::chrono::steady_clock;
    Backlog backlog(60);
    LogCapture capture;
    ASSERT_EQ(capture.count(kLine), 0);
    ExhaustedDescriptors exhausted;
    // A line of an earlier test may be less than a second ago.
    size_t shed = 0;
    for (; shed < 40 && capture.count(kLine) == 0; ++shed) {
        EXPECT_FALSE(backlog.listener.accept().isValid());
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
    }
    ASSERT_EQ(capture.count(kLine), 1);
    const auto start = Clock::now();
    backlog.drain();
    const auto elapsed = Clock::now() - start + std::chrono::milliseconds(40);
    EXPECT_TRUE(isHungUp(backlog.clients.back()));
    EXPECT_LE(capture.count(kLine), 1 + elapsed / std::chrono::seconds(1));
}

TEST(AcceptWithoutDescriptors, GetsItsReserveBackAfterSomebodyElseTookIt) {
    Backlog backlog(200);
    std::vector<int> stolen;
    // Opens whatever becomes free while connections are shed. As above, it neither starts nor ends
    // meanwhile.
    enum Phase { kBefore, kStealing, kOver, kAfter };
    std::atomic<Phase> phase{kBefore};
    std::thread thief([&] {
        while (phase == kBefore) std::this_thread::yield();
        while (phase == kStealing) {
            const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (fd >= 0) stolen.push_back(fd);
        }
        while (phase == kOver) std::this_thread::yield();
    });
    {
        ExhaustedDescriptors exhausted;
        phase = kStealing;
        for (int i = 0; i < 2000; ++i) std::ignore = backlog.listener.accept();
        phase = kOver;
    }
    phase = kAfter;
    thief.join();
    for (int fd : stolen) close(fd);
    while (backlog.drain() > 0) {
    }
    Socket client = Tcp4Transport().client(backlog.listener);
    ASSERT_TRUE(testing::awaitReadable(backlog.listener.fd()));
    EXPECT_TRUE(backlog.listener.accept().isValid());

    Socket late = Tcp4Transport().client(backlog.listener);
    ASSERT_TRUE(testing::awaitReadable(backlog.listener.fd()));
    ExhaustedDescriptors exhausted;
    EXPECT_FALSE(backlog.listener.accept().isValid());
    EXPECT_TRUE(isHungUp(late));
}

TEST(AcceptWithoutDescriptors, ThreadsDoNotTakeTheReserveFromEachOther) {
    testing::allowDescriptors(4096);
    std::vector<Backlog> backlogs;
    for (int i = 0; i < 4; ++i) backlogs.emplace_back(400);
    std::vector<int> kept(backlogs.size());
    const int threadCount = static_cast<int>(backlogs.size());
    std::atomic<int> started{0};
    std::atomic<int> finished{0};
    std::atomic<bool> exhausted{false};
    std::vector<std::thread> threads;
    // Threads neither start nor end while it lasts: the sanitizer would have to look at their
    // classes, see ExhaustedDescriptors.
    for (size_t i = 0; i < backlogs.size(); ++i) {
        threads.emplace_back([&, i] {
            ++started;
            while (!exhausted) std::this_thread::yield();
            kept[i] = backlogs[i].drain();
            ++finished;
            while (exhausted) std::this_thread::yield();
        });
    }
    while (started < threadCount) std::this_thread::yield();
    {
        ExhaustedDescriptors none;
        exhausted = true;
        while (finished < threadCount) std::this_thread::yield();
    }
    exhausted = false;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(kept, std::vector<int>(backlogs.size(), 0));
    for (Backlog& backlog : backlogs) {
        for (Socket& client : backlog.clients) EXPECT_TRUE(isHungUp(client));
    }
}

}  // namespace
}  // namespace vyn
