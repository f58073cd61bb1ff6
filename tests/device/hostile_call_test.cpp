// What listeners do when the kernel refuses, and when others got there first.

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <vyn/net_device.h>
#include <vyn/unix_device.h>

#include <atomic>

#include "support/fatal_capture.h"
#include "support/log_capture.h"
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
