// SPDX-License-Identifier: Apache-2.0

// What listeners do when the kernel refuses, and when others got there first.

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/syscall.h>

#include "support/support.h"
#include "support/transports.h"

namespace {

// What listen() and accept4() fail with; 0 lets them through.
std::atomic<int> gListenError{0}, gAcceptError{0};

template <typename... Arguments>
int callUnless(int error, long number, Arguments... arguments) {
    if (error == 0) return static_cast<int>(syscall(number, arguments...));
    errno = error;
    return -1;
}

}  // namespace

// These take the place of the C library's.
extern "C" int listen(int fd, int backlog) {
    return callUnless(gListenError, SYS_listen, fd, backlog);
}
extern "C" int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    return callUnless(gAcceptError, SYS_accept4, fd, address, length, flags);
}

namespace vyn {
namespace {

using testing::LogCapture;

TEST(ListenerDevice, FailingToListenIsFatalWhenItIsMadeAndTellsWhy) {
    testing::TemporaryFolder folder;
    testing::FatalCapture fatal;
    LogCapture capture;
    gListenError = EADDRINUSE;
    const ListenerDevice tcp(0, "127.0.0.1");
    const UnixListenerDevice local(folder / "socket");
    EXPECT_FALSE(ListenerDevice().listen(0, "127.0.0.1"));
    gListenError = 0;
    EXPECT_EQ(fatal.count("failed. [98] Address already in use"), 2);
    EXPECT_EQ(capture.count("listen on"), 3);  // success is not claimed
}

TEST(ListenerDevice, WaitsWhileAcceptingFailsAndListensElsewhereInALoop) {
    ListenerDevice device(0, "127.0.0.1");
    Worker worker(&device, nullptr);
    testing::RecordingExecutor executor;
    std::atomic<int> accepted{0}, failed{0};
    executor.newConnection = [&](Worker*, int, void* data) {
        ++(static_cast<const Socket*>(data)->isValid() ? accepted : failed);
    };
    testing::LoopThread loop;
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
        EXPECT_TRUE(testing::waitUntil([&] { return accepted > 0; }));
        accepted = 0;
        const Socket copy(device.socket());  // keeps the former socket open
        loop.call([&] { EXPECT_TRUE(device.listen(0, "127.0.0.1")); });
    }
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

TEST(UnixSocket, ReplacesAStaleFileWhoeverHoldsTheFoldersLock) {
    testing::TemporaryFolder folder;
    const int held = open((folder / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(UnixSocket(UnixSocket::STREAM).bind(folder / "socket"));
    }
    close(held);
}

}  // namespace
}  // namespace vyn
