// What listeners do when the kernel refuses, and when others got there first.

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <vyn/net_device.h>
#include <vyn/unix_device.h>

#include <atomic>

#include "support/support.h"
#include "support/transports.h"

namespace {

// What listen() and accept4() fail with; 0 lets them through.
std::atomic<int> gListenError{0};
std::atomic<int> gAcceptError{0};

int failWith(int error) {
    errno = error;
    return -1;
}

}  // namespace

// These take the place of the C library's.
extern "C" int listen(int fd, int backlog) {
    if (gListenError != 0) return failWith(gListenError);
    return static_cast<int>(syscall(SYS_listen, fd, backlog));
}
extern "C" int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    if (gAcceptError != 0) return failWith(gAcceptError);
    return static_cast<int>(syscall(SYS_accept4, fd, address, length, flags));
}

namespace vyn {
namespace {

using testing::FatalCapture;
using testing::LogCapture;

TEST(ListenerDevice, FailingToListenIsFatalWhenItIsMadeAndTellsWhy) {
    testing::TemporaryFolder folder;
    FatalCapture fatal;
    LogCapture capture;
    gListenError = EADDRINUSE;
    const ListenerDevice tcp(0, "127.0.0.1");
    const UnixListenerDevice local(folder / "socket");
    EXPECT_FALSE(ListenerDevice().listen(0, "127.0.0.1"));
    gListenError = 0;
    EXPECT_EQ(fatal.count("failed. [98] Address already in use"), 2);
    EXPECT_EQ(capture.count("[98] Address already in use. listen on 127.0.0.1:"), 1);
    EXPECT_EQ(capture.count("listen on"), 3);  // success is not claimed
}

// A listener in a loop, and what it reports.
struct ServedListener {
    ServedListener() : worker(&device, nullptr) {
        executor.newConnection = [this](Worker*, int, void* data) {
            ++(static_cast<const Socket*>(data)->isValid() ? accepted : failed);
        };
        loop.call([this] { loop.connector().addWorkerLocked(&worker, &executor); });
    }
    ~ServedListener() {
        loop.call([this] { loop.connector().removeWorkerLocked(&worker); });
    }
    bool serves(int port) {
        const int before = accepted;
        Socket client(Socket::TCP);
        return client.connect("127.0.0.1", port) &&
               testing::waitUntil([&] { return accepted > before; });
    }

    testing::RecordingExecutor executor;
    ListenerDevice device{0, "127.0.0.1"};
    Worker worker;
    std::atomic<int> accepted{0};
    std::atomic<int> failed{0};
    testing::LoopThread loop;
};

TEST(ListenerDevice, ListensElsewhereWhileItIsInALoop) {
    ServedListener served;
    const Socket copy(served.device.socket());  // keeps the former socket open
    const int former = copy.getHostPort();
    for (int i = 0; i < 3; ++i) {
        served.loop.call([&] { EXPECT_TRUE(served.device.listen(0, "127.0.0.1")); });
        EXPECT_TRUE(served.serves(served.device.socket().getHostPort()));
    }
    EXPECT_NE(served.device.socket().getHostPort(), former);
}

TEST(ListenerDevice, WaitsWhileAcceptingFailsAndRecovers) {
    ServedListener served;
    for (const int error : {ENOBUFS, EAGAIN}) {
        LogCapture capture;
        gAcceptError = error;
        const int turns = served.failed;
        Socket client(Socket::TCP);
        ASSERT_TRUE(client.connect("127.0.0.1", served.device.socket().getHostPort()));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_GT(served.failed, turns);
        EXPECT_LT(served.failed, turns + 1000);
        EXPECT_LE(capture.count("accept. no connection could be taken at fd"), 1);
        gAcceptError = 0;
        EXPECT_TRUE(served.serves(served.device.socket().getHostPort()));
    }
}

TEST(UnixSocket, ReplacesAStaleFileWhoeverHoldsTheFoldersLock) {
    testing::TemporaryFolder folder;
    const std::string path = folder / "socket";
    const int held = open((folder / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    for (int start = 0; start < 2; ++start) {
        UnixSocket socket(UnixSocket::STREAM);
        EXPECT_TRUE(socket.bind(path)) << UnixSocket::lastErrorMessage();
    }
    close(held);
}

}  // namespace
}  // namespace vyn
