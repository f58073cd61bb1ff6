#include <gtest/gtest.h>
#include <signal.h>
#include <termios.h>
#include <vyn/console_device.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/console_redirect.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/received_worker.h"
#include "support/recording_executor.h"
#include "support/wait.h"

namespace vyn {
namespace {

using testing::ConsoleRedirect;
using testing::Pipe;

std::string readAll(int fd, size_t most) {
    std::string all(most, '\0');
    size_t size = 0;
    while (size < most) {
        const ssize_t count = read(fd, all.data() + size, most - size);
        if (count <= 0) break;
        size += static_cast<size_t>(count);
    }
    all.resize(size);
    return all;
}

// What the console shows of `bytes`.
std::string printed(const std::string& bytes) {
    Pipe output;
    {
        ConsoleRedirect redirect(STDIN_FILENO, output.writeEnd());
        ConsoleDevice device;
        EXPECT_EQ(device.write(bytes.data(), static_cast<int>(bytes.size())),
                  static_cast<int>(bytes.size()));
    }
    output.closeWriteEnd();
    return readAll(output.readEnd(), 1 << 16);
}

TEST(ConsoleDevice, EscapesEveryByteThatATerminalMightActOn) {
    EXPECT_EQ(printed("A!\n"), "A\\x21\n");
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    const std::string shown = printed(all);
    EXPECT_EQ(shown.substr(0, shown.find('$')),
              "\\x00\\x01\\x02\\x03\\x04\\x05\\x06\\x07\\x08\t\n\\x0b\\x0c\r\\x0e\\x0f"
              "\\x10\\x11\\x12\\x13\\x14\\x15\\x16\\x17\\x18\\x19\\x1a\\x1b\\x1c\\x1d\\x1e\\x1f"
              " \\x21\"\\x23");
    EXPECT_EQ(shown.substr(shown.find('$'), 126 - 36 + 1), all.substr(36, 126 - 36 + 1));
    const std::string rest = shown.substr(shown.find('~') + 1);
    EXPECT_EQ(rest.size(), 129u * 4);
    EXPECT_EQ(rest.substr(0, 8), "\\x7f\\x80");
    EXPECT_EQ(rest.substr(rest.size() - 4), "\\xff");
}

TEST(ConsoleDevice, PrintsNothingForNoBytes) {
    EXPECT_EQ(printed(""), "");
    ConsoleDevice device;
    EXPECT_EQ(device.write(nullptr, 0), 0);
    EXPECT_EQ(device.write(nullptr, -5), -5);
}

TEST(ConsoleDevice, LosesNothingToASlowReader) {
    Pipe output;
    fcntl(output.writeEnd(), F_SETFL, O_NONBLOCK);
    const std::string text(300000, 'x');  // more than a pipe holds
    std::string received;
    std::thread reader([&] { received = readAll(output.readEnd(), text.size()); });
    {
        ConsoleRedirect redirect(STDIN_FILENO, output.writeEnd());
        ConsoleDevice().write(text.data(), static_cast<int>(text.size()));
    }
    output.closeWriteEnd();
    reader.join();
    EXPECT_TRUE(received == text);
}

TEST(ConsoleDevice, SurvivesAReaderThatIsGone) {
    Pipe output;
    output.closeReadEnd();
    ConsoleRedirect redirect(STDIN_FILENO, output.writeEnd());
    testing::LogCapture capture;
    EXPECT_EQ(ConsoleDevice().write("text", 4), 4);
    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{"[32] Broken pipe. write to the console fail. "
                                       "the rest of 4 bytes is dropped."});
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(ConsoleDevice, LeavesStandardInputAndOutputOpen) {
    Pipe input;
    const int before = testing::openDescriptors();
    {
        ConsoleRedirect redirect(input.readEnd(), STDOUT_FILENO);
        {
            ConsoleDevice device;
            EXPECT_STREQ(device.getClassName(), "ConsoleDevice");
            EXPECT_EQ(device.getFd(), 0);
            device.disconnect();
        }
        EXPECT_GE(fcntl(STDIN_FILENO, F_GETFD), 0);
        EXPECT_GE(fcntl(STDOUT_FILENO, F_GETFD), 0);
    }
    EXPECT_EQ(testing::openDescriptors(), before);
}

TEST(ConsoleDevice, TheEndOfInputDisconnects) {
    Pipe input;
    ConsoleDevice device;
    testing::ReceivedWorker worker(&device);
    testing::RecordingExecutor executor;
    worker.attach(nullptr, &executor);
    int disconnections = 0;
    executor.disconnected = [&](Worker*) { ++disconnections; };
    ASSERT_EQ(write(input.writeEnd(), "quit", 4), 4);
    input.closeWriteEnd();
    ConsoleRedirect redirect(input.readEnd(), STDOUT_FILENO);
    device.onDataArrival(0);
    EXPECT_EQ(worker.chunks, std::vector<std::string>{"quit"});
    device.onDataArrival(0);
    EXPECT_EQ(disconnections, 1);
}

// Both ends of a pseudo-terminal that passes bytes as they are.
struct Terminal {
    Terminal() : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        grantpt(master);
        unlockpt(master);
        slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings{};
        tcgetattr(slave, &settings);
        cfmakeraw(&settings);
        tcsetattr(slave, TCSANOW, &settings);
    }
    ~Terminal() {
        close(slave);
        close(master);
    }
    int master;
    int slave = -1;
};

// Answers what it reads in capitals.
class CapitalWorker : public Worker {
  public:
    explicit CapitalWorker(Device* device) : Worker(device, nullptr) {}
    bool handledBeforeParser(const void* data, int len) override {
        std::string answer(static_cast<const char*>(data), static_cast<size_t>(len));
        for (char& c : answer) c = static_cast<char>(std::toupper(c));
        writeRaw(answer.data(), len);
        return true;
    }
};

TEST(ConsoleDevice, TalksOverATerminalThroughTheLoop) {
    Terminal terminal;
    ASSERT_GE(terminal.slave, 0);
    ConsoleRedirect redirect(terminal.slave, terminal.slave);
    ConsoleDevice device;
    CapitalWorker worker(&device);
    testing::RecordingExecutor executor;
    testing::LoopThread loop;
    loop.connector().addWorkerLocked(&worker, &executor);
    ASSERT_EQ(write(terminal.master, "status\n", 7), 7);
    EXPECT_TRUE(testing::awaitReadable(terminal.master));
    EXPECT_EQ(readAll(terminal.master, 7), "STATUS\n");
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

}  // namespace
}  // namespace vyn
