// SPDX-License-Identifier: Apache-2.0

#include <vyn/console_device.h>

#include <cstring>

#include "support/support.h"

namespace vyn {
namespace {

using namespace testing;

// What the console shows of `bytes` to a reader at a pipe that holds less.
std::string shown(const std::string& bytes) {
    Pipe output;
    fcntl(output.writeEnd(), F_SETFL, O_NONBLOCK);
    std::string received;
    std::thread reader([&] {
        for (char byte; read(output.readEnd(), &byte, 1) == 1;) received += byte;
    });
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
    for (int i = 0; i < 256 * 100; ++i) {
        const char byte = static_cast<char>(i);
        char text[8] = {byte};
        const bool isSafe = byte != 0 && std::strchr("\t\n\r \"", byte) != nullptr;
        if (!isSafe && (byte < '$' || byte > '~')) std::snprintf(text, 5, "\\x%02x", i % 256);
        bytes += byte;
        expected += text;
    }
    EXPECT_TRUE(shown(bytes) == expected);
}

TEST(ConsoleDevice, SurvivesAReaderThatIsGone) {
    Pipe output;
    output.closeReadEnd();
    ConsoleRedirect redirect(STDIN_FILENO, output.writeEnd());
    LogCapture capture;
    EXPECT_EQ(ConsoleDevice().write("text", 4), 4);
    EXPECT_EQ(capture.texts(), Strings{"[32] Broken pipe. write to the console fail. "
                                       "the rest of 4 bytes is dropped."});
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
