// SPDX-License-Identifier: Apache-2.0

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <set>

#include "connector/wake_pipe.h"
#include "connector/watched_loop.h"

// A loop whose calls of the kernel fail, which was held up, or which was inherited by a child says
// so, goes on where it can, and does not take the whole processor.

// How many more allocations by this thread succeed; negative: all of them.
static thread_local int tAllocationsLeft = -1;

// Not inlined, or the compiler takes one half of the pair for another allocator's.
#define NOT_INLINED __attribute__((noinline))
NOT_INLINED void* operator new(size_t size, const std::nothrow_t&) noexcept {
    if (tAllocationsLeft == 0) return nullptr;
    if (tAllocationsLeft > 0) --tAllocationsLeft;
    return std::malloc(size);
}
NOT_INLINED void* operator new(size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
NOT_INLINED void* operator new(size_t size, std::align_val_t alignment) {
    const auto line = static_cast<size_t>(alignment);
    if (tAllocationsLeft == 0) throw std::bad_alloc();
    if (tAllocationsLeft > 0) --tAllocationsLeft;
    return std::aligned_alloc(line, (size + line - 1) / line * line);
}
NOT_INLINED void operator delete(void* memory) noexcept { std::free(memory); }
NOT_INLINED void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
NOT_INLINED void operator delete(void* memory, size_t, std::align_val_t) noexcept {
    std::free(memory);
}
NOT_INLINED void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace vyn {
namespace {

using namespace testing;

// The process's descriptors of a kind, such as "pipe:".
std::set<int> descriptorsOf(const std::string& kind) {
    std::set<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone);
        if (target.rfind(kind, 0) == 0) found.insert(std::stoi(entry.path().filename()));
    }
    return found;
}

const std::string kAnew = "[9] Bad file descriptor. epoll_wait fail. epoll set is made anew.";

struct LoopTroubleTest : WatchedLoop {
    Connection connection{*this};
};

TEST_F(LoopTroubleTest, AnEpollSetThatIsClosedByOthersIsMadeAnewAndItsNumberLeftToThem) {
    const auto epollSet = [] { return *descriptorsOf("anon_inode:[eventpoll]").begin(); };
    // A stranger comes at any moment, also within a wake-up. Not by close(), as the thread
    // sanitizer would report that.
    loop.call([&] { syscall(SYS_close, epollSet()); });
    EXPECT_TRUE(waitUntil([&] { return log.count(kAnew) == 1; }));
    const int stranger = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int number = -1;
    loop.call([&] { number = dup3(stranger, epollSet(), O_CLOEXEC); });
    connection.send("served");
    EXPECT_TRUE(connection.worker.hears("served"));
    EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
    close(number);
    close(stranger);
}

TEST_F(LoopTroubleTest, AClosedDescriptorIsBorneWhileThereIsNoneForANewSet) {
    Connection closed(*this);
    closed.closeAndRemove();
    EXPECT_LT(busyMs(), 100);  // also since sanitizers take descriptors for what they have not met
    {
        ExhaustedDescriptors exhausted;
        closed.send("nobody reads this");
        const std::string line =
            "[24] Too many open files. a closed descriptor is still open elsewhere, and no new "
            "epoll set can be made. trying again.";
        EXPECT_TRUE(waitUntil([&] { return log.count(line) > 0; }));
        EXPECT_LT(busyMs(), 100);
        EXPECT_LE(log.count(line), 2);
        connection.send("served");
        EXPECT_TRUE(connection.worker.hears("served"));
    }
    EXPECT_TRUE(isSetMadeAnew());
}

TEST(LoopThatCanNotBeWoken, GetsItsMessagesAndIsMended) {
    const std::set<int> before = descriptorsOf("pipe:");
    LogCapture log;
    LoopThread loop;
    std::set<int> pipe = descriptorsOf("pipe:");
    for (const int fd : before) pipe.erase(fd);
    const int readEnd = *pipe.begin();
    const int kept = fcntl(readEnd, F_DUPFD_CLOEXEC, 0);
    const int broken = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const auto tells = [&](const char* line) {
        return waitUntil([&] {
            loop.call([] {});  // arrives without a wake-up when the loop is not waiting yet
            return log.count(line) > 0;
        });
    };
    loop.call([&] { dup2(broken, readEnd); });
    EXPECT_TRUE(tells("[1] Operation not permitted. the loop can not be woken."));
    loop.call([&] { dup2(kept, readEnd); });
    char byte;
    EXPECT_EQ(read(kept, &byte, 1), 1);
    EXPECT_TRUE(tells("somebody has emptied the wake pipe. it is filled again."));
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) loop.call([] {});
    // A loop that is not woken looks every 200 ms.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    close(broken);
    close(kept);
}

TEST(WakePipe, LosesNoWakeUpWhileTheSetIsMadeAnew) {
    constexpr int kWakeUps = 5000;
    Epoll epoll;
    WakePipe pipe(epoll);
    ASSERT_EQ(pipe.mend(), 0);
    std::atomic<int> posted[2]{}, seen[2]{};
    std::vector<std::thread> posters;
    for (int i : {0, 1}) {
        posters.emplace_back([&, i] {
            while (++posted[i] < kWakeUps) {
                pipe.wake();
                while (seen[i] != posted[i]) std::this_thread::yield();
            }
            pipe.wake();
        });
    }
    for (int turn = 0; seen[0] + seen[1] < 2 * kWakeUps; ++turn) {
        Epoll fresh;
        if (turn % 2 == 0) {
            EXPECT_EQ(pipe.addTo(fresh) + epoll.replaceBy(fresh, false), 0);
        }
        epoll_event events[Epoll::kMostEvents];
        EXPECT_EQ(epoll.wait(events, 10000), 1);
        pipe.onEvent();
        for (int i : {0, 1}) seen[i] = posted[i].load();
    }
    for (std::thread& poster : posters) poster.join();
}

TEST(WakePipe, IsMendedWhenSomebodyHasTakenItOutOfTheSet) {
    Epoll epoll;
    WakePipe pipe(epoll);
    ASSERT_EQ(pipe.mend(), 0);
    epoll_event events[Epoll::kMostEvents];
    ASSERT_EQ(epoll.wait(events, 10000), 1);
    pipe.onEvent();
    epoll.remove(pipe.readEnd());
    pipe.wake();
    EXPECT_TRUE(pipe.hasFailed());
    EXPECT_EQ(pipe.mend(), 0);
    EXPECT_EQ(epoll.wait(events, 10000), 1);
    EXPECT_FALSE(pipe.hasFailed());
    pipe.wake();
    epoll.remove(pipe.readEnd());
    EXPECT_EQ(epoll.wait(events, 0), 0);
    EXPECT_FALSE(pipe.isFoundEmpty());
    EXPECT_TRUE(pipe.hasFailed());
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
    std::unique_ptr<Impatient> worker;
    loop.call([&] {
        worker = std::make_unique<Impatient>(&connection.device);
        add(*worker);
        connection.send("x");
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
    });
    EXPECT_TRUE(waitUntil([&] { return worker->silence > 300; }));
    EXPECT_EQ(worker->beforeTheBytes, 0);
    remove(*worker);
}

// For want of each allocation in turn, until there are enough.
TEST(LoopWithoutMemory, IsNotMadeOrTakesNoTimer) {
    struct Counting : Timer {
        int held = 0;
        bool onTimer(void*, int) override { return true; }
        void onTimerRemoved() override { --held; }
    } timer;
    bool isEnough = false;
    for (int allocations = 0; !isEnough; ++allocations) {
        tAllocationsLeft = allocations;
        try {
            Connector connector;
            for (int i = 0; i < 20; ++i, ++timer.held) connector.addTimer(&timer, 1000, nullptr);
            isEnough = true;
        } catch (const std::bad_alloc&) {
        }
        tAllocationsLeft = -1;
        EXPECT_EQ(timer.held, 0) << "with " << allocations << " allocations";
    }
}

TEST(LoopWithoutMemory, AddsAWorkerWholeOrNotAtAllAndReportsItsOverflow) {
    Connector connector;
    RecordingExecutor executor;
    const auto ends = makeSocketPair();
    StreamDevice device(ends.first);
    ReceivedWorker worker(&device);
    for (int allocations = 0; printed(&connector).find("Workers: []") != std::string::npos;) {
        tAllocationsLeft = allocations++;
        try {
            connector.addWorkerLocked(&worker, &executor);
        } catch (const std::bad_alloc&) {
        }
        tAllocationsLeft = -1;
    }
    executor.disconnected = [&](Worker*) { connector.stop(); };
    executor.message = [&](Message) {
        worker.queueWritting("x", 1);  // the others ask for no other memory
        tAllocationsLeft = 0;
        overflow(worker);
        tAllocationsLeft = -1;
    };
    connector.sendMessageDelayed(&executor, Message::obtain(), 0);
    connector.run();
    close(ends.second);
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
        worker.pauseReading();
        connector.run();
        _exit(log.count("a loop belongs to the process that made it, ") == 3 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(write(ends.second, "x", 1), 1);
    close(ends.second);
    executor.disconnected = [&](Worker*) { connector.stop(); };
    connector.run();
    EXPECT_EQ(worker.chunks, Strings{"x"});
}

}  // namespace
}  // namespace vyn
