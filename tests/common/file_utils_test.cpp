#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyn/file_utils.h>

#include <cerrno>
#include <climits>

#include "support/log_capture.h"
#include "support/plain_user.h"
#include "support/temporary_folder.h"

namespace vyn {
namespace {

using testing::LogCapture;
using testing::PlainUser;
using testing::TemporaryFolder;
using Texts = std::vector<std::string>;

TEST(FileSize, IsTheSizeOrTheNegativeError) {
    LogCapture capture;
    TemporaryFolder folder;
    EXPECT_EQ(filesize(folder.write("five", "12345")), 5);
    EXPECT_TRUE(capture.lines().empty());
    EXPECT_EQ(filesize(folder / "missing"), -ENOENT);
    EXPECT_EQ(capture.texts(), Texts{"[2] No such file or directory. stat fail."});
}

TEST(FileSize, IsTheGreatestIntBeyond2GiB) {
    TemporaryFolder folder;
    const std::string path = folder.write("sparse", "");
    ASSERT_EQ(truncate(path.c_str(), 3000000000), 0);
    EXPECT_EQ(filesize(path), INT_MAX);
}

TEST(FileExists, MeansThatItCanBeRead) {
    LogCapture capture;
    TemporaryFolder folder;
    const std::string path = folder.write("file", "");
    EXPECT_TRUE(fileexists(path));
    EXPECT_FALSE(fileexists(folder / "missing"));
    chmod(folder.path().c_str(), 0755);
    chmod(path.c_str(), 0200);
    PlainUser user;
    EXPECT_FALSE(fileexists(path));
    EXPECT_TRUE(capture.lines().empty());
}

TEST(CreateFile, MakesAnEmptyFileAndLeavesAReadableOneAlone) {
    TemporaryFolder folder;
    EXPECT_TRUE(createfile(folder / "new"));
    EXPECT_EQ(filesize(folder / "new"), 0);
    EXPECT_TRUE(createfile(folder.write("old", "content")));
    EXPECT_EQ(folder.read("old"), "content");
}

TEST(CreateFile, LogsWhyItCannot) {
    LogCapture capture;
    TemporaryFolder folder;
    EXPECT_FALSE(createfile(folder / "missing/file"));
    EXPECT_EQ(capture.texts(), Texts{"[2] No such file or directory. fopen fail."});
}

TEST(ReadFile, GivesAllBytes) {
    TemporaryFolder folder;
    std::string content;
    for (int i = 0; i < 300000; ++i) content += static_cast<char>(i * 7);
    Buffer out("old");
    EXPECT_EQ(readFile(folder.write("file", content), out), 300000);
    EXPECT_EQ(std::string(out.data, static_cast<size_t>(out.size)), content);
    EXPECT_EQ(readFile(folder.write("empty", ""), out), 0);
    EXPECT_TRUE(out.isEmpty());
    EXPECT_EQ(out.size, 0);
}

TEST(ReadFile, LeavesTheBufferAloneWhenThereIsNoSuchFile) {
    LogCapture capture;
    TemporaryFolder folder;
    Buffer out("old");
    EXPECT_EQ(readFile(folder / "missing", out), -2);
    EXPECT_EQ(capture.texts(), Texts{"[2] No such file or directory. stat fail."});
    EXPECT_TRUE(out == "old");
}

TEST(ReadFile, LogsThatAFileMayNotBeRead) {
    TemporaryFolder folder;
    const std::string path = folder.write("file", "content");
    chmod(folder.path().c_str(), 0755);
    chmod(path.c_str(), 0);
    LogCapture capture;
    PlainUser user;
    Buffer out;
    EXPECT_EQ(readFile(path, out), -EACCES);
    EXPECT_EQ(capture.texts(), Texts{"[13] Permission denied. fopen fail."});
}

TEST(ReadFile, LogsThatADirectoryCannotBeRead) {
    LogCapture capture;
    TemporaryFolder folder;
    Buffer out;
    EXPECT_EQ(readFile(folder.path(), out), -EISDIR);
    EXPECT_EQ(capture.texts(), Texts{"[21] Is a directory. fread fail."});
}

TEST(ReadFile, TakesAFileOfTheKernelThatHasNoSizeForEmpty) {
    Buffer out("old");
    EXPECT_EQ(readFile("/proc/self/status", out), 0);
    EXPECT_TRUE(out.isEmpty());
}

TEST(ReadFile, DoesNotWaitForTheWriterOfANamedPipe) {
    TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    Buffer out;
    EXPECT_EQ(readFile(folder / "pipe", out), 0);
}

// The kernel announces a page for such a file and gives less, as a file does that shrinks after its
// size was asked for.
TEST(ReadFile, FailsWhenTheFileEndsBeforeItsSize) {
    const std::string path = "/sys/devices/system/cpu/online";
    const int size = fileexists(path) ? filesize(path) : 0;
    if (size < 1000) GTEST_SKIP() << "no file here is shorter than its size";
    LogCapture capture;
    Buffer out;
    EXPECT_EQ(readFile(path, out), -EIO);
    EXPECT_EQ(capture.texts(), Texts{"[5] Input/output error. fread fail."});
    EXPECT_EQ(out.size, size);
    EXPECT_EQ(out[0], '0') << "what could be read is there";
    EXPECT_EQ(out[-1], 0);
}

TEST(GetDirCount, CountsDirectoriesWithNamesOf9And16Characters) {
    TemporaryFolder folder;
    for (const std::string name : {"12345678", "123456789", "abcdefghi", "1234567890",
                                   "123456789012345", "1234567890123456", "12345678901234567"}) {
        mkdir((folder / name).c_str(), 0700);
    }
    folder.write("file56789", "");
    folder.write("file567890123456", "");
    EXPECT_EQ(symlink(folder.path().c_str(), (folder / "link56789").c_str()), 0);
    EXPECT_EQ(getDirCount(folder.path()), 3);
}

TEST(GetDirCount, IsZeroAndLogsWhenThereIsNoSuchDirectory) {
    LogCapture capture;
    TemporaryFolder folder;
    EXPECT_EQ(getDirCount(folder / "missing"), 0);
    EXPECT_EQ(capture.texts(), Texts{"[2] No such file or directory. fread fail."});
}

}  // namespace
}  // namespace vyn
