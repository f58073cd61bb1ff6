// SPDX-License-Identifier: Apache-2.0

#include <vyn/file_utils.h>

#include <climits>

#include "support/support.h"

namespace vyn::testing {
namespace {

TEST(FileUtils, CreateMeasureAndReadFiles) {
    TemporaryFolder folder;
    const std::string content(300000, 'x'), path = folder.write("file", content);
    Buffer out("old");
    EXPECT_TRUE(createfile(path)) << "which it leaves alone";
    EXPECT_EQ(readFile(path, out), 300000);
    EXPECT_EQ(std::string(out.data, 300000), content);
    EXPECT_TRUE(createfile(folder / "new"));
    EXPECT_EQ(readFile(folder / "new", out) + out.size, 0);
    ASSERT_EQ(truncate(path.c_str(), 3000000000), 0);
    EXPECT_EQ(filesize(path), INT_MAX);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(readFile(folder / "pipe", out), 0) << "without waiting for its writer";

    EXPECT_GT(readToEnd("/proc/self/status", out), 100);
    EXPECT_EQ(out.bytes().substr(0, 5), "Name:");
    Pipe pipe;
    std::thread writer([&] {
        for (int i = 0; i < 50; ++i) EXPECT_EQ(write(pipe.writeEnd(), content.data(), 5000), 5000);
        pipe.closeWriteEnd();
    });
    fcntl(pipe.readEnd(), F_SETFL, O_NONBLOCK);
    EXPECT_EQ(readToEnd(pipe.readEnd(), out), 250000);
    writer.join();
    EXPECT_EQ(readToEnd("/", out), -EISDIR);
    EXPECT_EQ(out.size, 250000) << "as it was";
}

TEST(FileUtils, LogWhatTheyCannotDo) {
    LogCapture log;
    TemporaryFolder folder;
    const std::string missing = folder / "missing";
    const std::string secret = folder.write("secret", "content");
    chmod(folder.path().c_str(), 0755);
    chmod(secret.c_str(), 0200);
    Buffer out("old");
    EXPECT_EQ(filesize(missing), -ENOENT);
    EXPECT_EQ(readFile(missing, out), -ENOENT);
    EXPECT_TRUE(out == "old");
    EXPECT_FALSE(createfile(missing + "/file"));
    EXPECT_EQ(getDirCount(missing), 0);
    {
        PlainUser user;
        EXPECT_EQ(readFile(secret, out), -EACCES);
        EXPECT_FALSE(fileexists(secret)) << "silently";
    }
    const std::string none = "[2] No such file or directory. ";
    EXPECT_EQ(log.texts(), (Strings{none + "stat fail.", none + "stat fail.", none + "fopen fail.",
                                    none + "fread fail.", "[13] Permission denied. fopen fail."}));
}

// The kernel announces a page for such a file and gives less, as a file does that shrinks after its
// size was asked for.
TEST(FileUtils, FailToReadAFileThatEndsBeforeItsSize) {
    const std::string path = "/sys/devices/system/cpu/online";
    if (!fileexists(path) || filesize(path) < 1000) GTEST_SKIP() << "no file here is such a one";
    LogCapture log;
    Buffer out;
    EXPECT_EQ(readFile(path, out), -EIO);
    EXPECT_EQ(log.texts(), Strings{"[5] Input/output error. fread fail."});
    EXPECT_TRUE(out[0] == '0' && out[-1] == 0) << "what could be read is there";
}

}  // namespace
}  // namespace vyn::testing
