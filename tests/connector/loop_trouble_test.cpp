#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <vyn/connector.h>
#include <vyn/timer.h>
#include <vyn/worker.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/support.h"

// A loop whose calls of the kernel fail, which was held up, or which was inherited by a child says
// so, goes on where it can, and does not take the whole processor.

// How many more allocations by this thread succeed; negative: all of them.
static thread_local int tAllocationsLeft = -1;

// Not inlined, or the compiler takes one half of the pair for another allocator's.
#define NOT_INLINED __attribute__((noinline))
NOT_INLINED void* operator new(size_t size) {
    void* const memory = tAllocationsLeft == 0 ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    if (tAllocationsLeft > 0) --tAllocationsLeft;
    return memory;
}
NOT_INLINED void operator delete(void* memory) noexcept { std::free(memory); }
NOT_INLINED void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace vyn {
namespace {

using testing::ExhaustedDescriptors;
using testing::LogCapture;
using testing::LoopThread;
using testing::makeSocketPair;
using testing::ReceivedWorker;
using testing::RecordingExecutor;
using testing::StreamDevice;
using testing::waitUntil;

// The process's descriptors of a kind, such as "pipe:".
std::vector<int> descriptorsOf(const std::string& kind) {
    std::vector<int> found;
    DIR* directory = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(directory)) {
        char target[PATH_MAX] = {};
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        if (readlink(link.c_str(), target, sizeof target - 1) < 0) continue;
        if (std::strncmp(target, kind.c_str(), kind.size()) == 0) {
            found.push_back(std::atoi(entry->d_name));
        }
    }
    closedir(directory);
    return found;
}

struct LoopTroubleTest : ::testing::Test {
    const std::vector<int> pipesBefore = descriptorsOf("pipe:");
    LogCapture log;
    LoopThread loop;
    RecordingExecutor executor;
    const std::pair<int, int> ends = makeSocketPair();
    StreamDevice device{ends.first};
    ReceivedWorker worker{&device};

    LoopTroubleTest() { loop.connector().addWorkerLocked(&worker, &executor); }
    ~LoopTroubleTest() override {
        loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
        close(ends.second);
    }

    bool isServed() {
        const size_t before = received();
        EXPECT_EQ(write(ends.second, "x", 1), 1);
        return waitUntil([&] { return received() > before; });
    }
    size_t received() {
        size_t count = 0;
        loop.call([&] { count = worker.chunks.size(); });
        return count;
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
};

TEST_F(LoopTroubleTest, AnEpollSetThatSomebodyClosesIsMadeAnew) {
    loop.call([] { close(descriptorsOf("anon_inode:[eventpoll]").at(0)); });
    EXPECT_TRUE(isServed());
    EXPECT_EQ(log.count("[9] Bad file descriptor. epoll_wait fail. epoll set is made anew."), 1);
}

TEST_F(LoopTroubleTest, WhatHasTakenTheNumberOfTheEpollSetIsLeftOpen) {
    const int stranger = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int number = -1;
    loop.call([&] {
        number = descriptorsOf("anon_inode:[eventpoll]").at(0);
        dup3(stranger, number, O_CLOEXEC);
    });
    EXPECT_TRUE(isServed());
    EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
    close(number);
    close(stranger);
}

TEST_F(LoopTroubleTest, AClosedDescriptorIsBorneWhileThereIsNoneForANewSet) {
    const auto others = makeSocketPair();
    StreamDevice closed(others.first);
    ReceivedWorker former(&closed);
    loop.connector().addWorkerLocked(&former, &executor);
    const int duplicate = fcntl(others.first, F_DUPFD_CLOEXEC, 0);
    closed.closeDescriptor();
    loop.call([&] { loop.connector().removeWorkerLocked(&former); });
    {
        ExhaustedDescriptors exhausted;
        ASSERT_EQ(write(others.second, "nobody reads this", 17), 17);
        EXPECT_TRUE(waitUntil([&] {
            return log.count(
                       "[24] Too many open files. a closed descriptor is still open "
                       "elsewhere, and no new epoll set can be made. trying again.") > 0;
        }));
        EXPECT_LT(busyMs(), 100);
        EXPECT_LE(log.count("trying again."), 2);
        EXPECT_TRUE(isServed());
        EXPECT_EQ(log.count("epoll set is made anew."), 0);
    }
    EXPECT_TRUE(waitUntil([&] { return log.count("epoll set is made anew.") == 1; }));
    close(duplicate);
    close(others.second);
}

TEST_F(LoopTroubleTest, MessagesComeWhileTheWakePipeFailsAndAtOnceWhenItIsMended) {
    std::vector<int> pipe;
    const std::vector<int> pipes = descriptorsOf("pipe:");
    std::set_difference(pipes.begin(), pipes.end(), pipesBefore.begin(), pipesBefore.end(),
                        std::back_inserter(pipe));
    const int writeEnd = pipe.at(1);
    const int kept = fcntl(writeEnd, F_DUPFD_CLOEXEC, 0);
    const int broken = open("/dev/null", O_RDONLY | O_CLOEXEC);
    loop.call([&] { dup2(broken, writeEnd); });
    EXPECT_TRUE(waitUntil([&] {
        loop.call([] {});  // arrives without a wake-up when the loop is not waiting yet
        return log.count("[9] Bad file descriptor. the loop can not be woken.") > 0;
    }));
    EXPECT_LT(busyMs(), 100);
    loop.call([&] { dup2(kept, writeEnd); });
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) loop.call([] {});
    // A loop that is not woken looks every 200 ms.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    close(kept);
    close(broken);
}

TEST_F(LoopTroubleTest, APeerWhoseBytesWaitIsNotTakenForSilentAfterASlowHandler) {
    struct Impatient : ReceivedWorker {
        using ReceivedWorker::ReceivedWorker;
        std::atomic<long> beforeTheBytes{0};
        std::atomic<long> silence{0};
        bool hasRemoteTimedout(long sinceLastRead) override {
            (chunks.empty() ? beforeTheBytes : silence) = sinceLastRead;
            return false;
        }
    };
    const auto others = makeSocketPair();
    StreamDevice other(others.first);
    std::unique_ptr<Impatient> peer;
    loop.call([&] {
        peer = std::make_unique<Impatient>(&other);
        loop.connector().addWorkerLocked(peer.get(), &executor);
        EXPECT_EQ(write(others.second, "x", 1), 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
    });
    EXPECT_TRUE(waitUntil([&] { return peer->silence > 300; }));
    EXPECT_EQ(peer->beforeTheBytes, 0);
    loop.call([&] { loop.connector().removeWorkerLocked(peer.get()); });
    close(others.second);
}

TEST(LoopWithoutMemory, IsNotMadeOrTakesNoTimer) {
    struct Counting : Timer {
        int removals = 0;
        bool onTimer(void*, int) override { return true; }
        void onTimerRemoved() override { ++removals; }
    } timer;
    LogCapture restoresTheLevel;
    logging::setLogLevel(logging::kLevelError);  // lines need memory, too
    bool isEnough = false;
    // For want of each allocation in turn, until there are enough.
    for (int allocations = 0; !isEnough; ++allocations) {
        int timers = 0;
        timer.removals = 0;
        tAllocationsLeft = allocations;
        try {
            Connector connector;
            for (; timers < 20; ++timers) connector.addTimer(&timer, 1000, nullptr);
            isEnough = true;
        } catch (const std::bad_alloc&) {
        }
        tAllocationsLeft = -1;
        EXPECT_EQ(timer.removals, timers) << "with " << allocations << " allocations";
    }
}

TEST(ForkedChild, CanNeitherRunALoopOfItsParentNorTakeAWorkerFromIt) {
    Connector connector;
    RecordingExecutor executor;
    const auto ends = makeSocketPair();
    StreamDevice device(ends.first);
    ReceivedWorker worker(&device);
    connector.addWorkerLocked(&worker, &executor);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        LogCapture log;
        connector.removeWorkerLocked(&worker);
        connector.run();
        _exit(log.count("a loop belongs to the process that made it, ") == 2 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(write(ends.second, "x", 1), 1);
    close(ends.second);
    executor.disconnected = [&](Worker*) { connector.stop(); };
    connector.run();
    EXPECT_EQ(worker.chunks, std::vector<std::string>{"x"});
}

}  // namespace
}  // namespace vyn
