#include <signal.h>
#include <vyn/console_device.h>

#include <cstring>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

// What comes until the other end is closed.
std::string readAll(int fd) {
    std::string all;
    char buffer[4096];
    for (ssize_t count; (count = read(fd, buffer, sizeof buffer)) > 0;) {
        all.append(buffer, static_cast<size_t>(count));
    }
    return all;
}

// What the console shows of `bytes` to a reader at a pipe that holds less.
std::string shown(const std::string& bytes) {
    Pipe output;
    fcntl(output.writeEnd(), F_SETFL, O_NONBLOCK);
    std::string received;
    std::thread reader([&] { received = readAll(output.readEnd()); });
    {
        ConsoleRedirect redirect(STDIN_FILENO, output.writeEnd());
        const int size = static_cast<int>(bytes.size());
        EXPECT_EQ(ConsoleDevice().write(bytes.data(), size), size);
    }
    output.closeWriteEnd();
    reader.join();
    return received;
}

TEST(ConsoleDevice, EscapesEveryByteThatATerminalMightActOnAndLosesNone) {
    std::string bytes;
    std::string expected;
    for (int i = 0; i < 256 * 1000; ++i) {
        const char byte = static_cast<char>(i);
        char text[8] = {byte};
        const bool isSafe = byte != 0 && std::strchr("\t\n\r \"", byte) != nullptr;
        if (!isSafe && (byte < '$' || byte > '~')) std::snprintf(text, 5, "\\x%02x", i % 256);
        bytes += byte;
        expected += text;
    }
    EXPECT_TRUE(shown(bytes) == expected);
    EXPECT_EQ(ConsoleDevice().write(nullptr, -5), -5);
}

TEST(ConsoleDevice, SurvivesAReaderThatIsGone) {
    Pipe output;
    output.closeReadEnd();
    ConsoleRedirect redirect(STDIN_FILENO, output.writeEnd());
    LogCapture capture;
    EXPECT_EQ(ConsoleDevice().write("text", 4), 4);
    EXPECT_EQ(capture.texts(), Strings{"[32] Broken pipe. write to the console fail. "
                                       "the rest of 4 bytes is dropped."});
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(ConsoleDevice, ReadsStandardInputToItsEndAndClosesNothing) {
    Pipe input;
    const int before = openDescriptors();
    int disconnections = 0;
    {
        ConsoleRedirect redirect(input.readEnd(), STDOUT_FILENO);
        ConsoleDevice device;
        ReceivedWorker worker(&device);
        RecordingExecutor executor;
        worker.attach(nullptr, &executor);
        executor.disconnected = [&](Worker*) { ++disconnections; };
        ASSERT_EQ(write(input.writeEnd(), "quit", 4), 4);
        input.closeWriteEnd();
        EXPECT_EQ(device.getFd(), STDIN_FILENO);
        device.onDataArrival(STDIN_FILENO);
        device.disconnect();
        EXPECT_EQ(worker.chunks, Strings{"quit"});
        EXPECT_EQ(disconnections, 0);
        device.onDataArrival(STDIN_FILENO);
    }
    EXPECT_EQ(disconnections, 1);
    EXPECT_EQ(openDescriptors(), before - 1);
}

}  // namespace
}  // namespace vyn
