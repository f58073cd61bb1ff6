#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyn/ini_config.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "support/plain_user.h"
#include "support/temporary_folder.h"

namespace vyn {
namespace {

using testing::PlainUser;
using testing::TemporaryFolder;

TEST(IniConfigSave, ReplacesTheFileByItsEntries) {
    TemporaryFolder folder;
    IniConfig config(folder.write("settings", "# comment\n\nb = 2\n"));
    config.set("a", "1", true);
    EXPECT_EQ(folder.read("settings"), "a=1\nb=2\n");
    config.set("a", "3", false);
    EXPECT_EQ(folder.read("settings"), "a=1\nb=2\n");
    EXPECT_TRUE(config.save());
    EXPECT_EQ(folder.read("settings"), "a=3\nb=2\n");
    EXPECT_EQ(folder.entries(), 1) << "no temporary file stays";
}

TEST(IniConfigSave, FailsWithoutAPathOrADirectory) {
    TemporaryFolder folder;
    EXPECT_FALSE(IniConfig().save());
    EXPECT_FALSE(IniConfig(folder / "missing/settings").save());
    EXPECT_FALSE(IniConfig(folder.path()).save());
    EXPECT_EQ(folder.entries(), 0);
}

TEST(IniConfigSave, CreatesAFileWithTheRightsTheProcessGives) {
    TemporaryFolder folder;
    const mode_t saved = umask(027);
    EXPECT_TRUE(IniConfig(folder / "settings").save());
    umask(saved);
    struct stat status {};
    ASSERT_EQ(stat((folder / "settings").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST(IniConfigSave, KeepsModeAndOwner) {
    TemporaryFolder folder;
    const std::string path = folder.write("settings", "a=1\n");
    chmod(path.c_str(), 0604);
    const uid_t owner = geteuid() == 0 ? 65534 : geteuid();
    ASSERT_EQ(chown(path.c_str(), owner, getegid()), 0);
    IniConfig(path).set("b", "2", true);
    EXPECT_EQ(folder.read("settings"), "a=1\nb=2\n");
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0604u);
    EXPECT_EQ(status.st_uid, owner);
}

TEST(IniConfigSave, FollowsSymbolicLinks) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "real");
    std::filesystem::create_symlink("real/settings", folder / "relative");
    std::filesystem::create_symlink(folder / "relative", folder / "absolute");
    for (const std::string value : {"created", "replaced"}) {
        IniConfig(folder / "absolute").set("a", value, true);
        EXPECT_EQ(folder.read("real/settings"), "a=" + value + "\n");
        EXPECT_TRUE(std::filesystem::is_symlink(folder / "absolute"));
        EXPECT_TRUE(std::filesystem::is_symlink(folder / "relative"));
    }
    std::filesystem::create_symlink("circle", folder / "circle");
    EXPECT_FALSE(IniConfig(folder / "circle").save());
}

TEST(IniConfigSave, RewritesInPlaceWhereTheDirectoryMayNotBeWritten) {
    TemporaryFolder folder;
    const std::string path = folder.write("settings", "a=1\nlonger=than the new content\n");
    chmod(path.c_str(), 0666);
    chmod(folder.path().c_str(), 0555);
    struct stat before {};
    struct stat after {};
    stat(path.c_str(), &before);
    bool saved = false, created = true;
    {
        PlainUser user;
        IniConfig config(path);
        saved = config.save();
        created = IniConfig(folder / "new").save();
    }
    chmod(folder.path().c_str(), 0755);
    EXPECT_TRUE(saved);
    EXPECT_FALSE(created);
    EXPECT_EQ(folder.read("settings"), "a=1\nlonger=than the new content\n");
    stat(path.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST(IniConfigSave, DoesNotReplaceAFileThatMayNotBeWritten) {
    TemporaryFolder folder;
    const std::string path = folder.write("settings", "a=1\n");
    chmod(path.c_str(), 0444);
    chmod(folder.path().c_str(), 0777);
    {
        PlainUser user;
        IniConfig config(path);
        config.set("a", "2", false);
        EXPECT_FALSE(config.save());
    }
    EXPECT_EQ(folder.read("settings"), "a=1\n");
}

TEST(IniConfigSave, WritesIntoAFileThatIsNoRegularOne) {
    const TemporaryFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    IniConfig config(path);
    config.set("a", "1", false);
    EXPECT_TRUE(config.save());
    char content[16] = {};
    EXPECT_EQ(read(reader, content, sizeof content), 4);
    EXPECT_STREQ(content, "a=1\n");
    EXPECT_TRUE(std::filesystem::is_fifo(path));
    close(reader);
}

// Saves more than there is room for and expects nothing to have changed.
void expectFailedSaveToChangeNothing(const TemporaryFolder& folder) {
    constexpr char kOldContent[] = "a=old\n";
    IniConfig config(folder.write("settings", kOldContent));
    config.set("b", std::string(300000, 'x'), false);
    EXPECT_FALSE(config.save());
    EXPECT_EQ(folder.read("settings"), kOldContent);
    EXPECT_EQ(folder.entries(), 1) << "no temporary file stays";
}

TEST(IniConfigSave, LeavesTheOldFileWholeWhenTheDiskIsFull) {
    TemporaryFolder folder;
    if (mount("vyn_test", folder.path().c_str(), "tmpfs", 0, "size=64k,mode=755") != 0) {
        GTEST_SKIP() << "file systems cannot be mounted here";
    }
    expectFailedSaveToChangeNothing(folder);
    chmod((folder / "settings").c_str(), 0666);
    {
        PlainUser whoMustRewriteInPlace;
        expectFailedSaveToChangeNothing(folder);
    }
    EXPECT_EQ(umount2(folder.path().c_str(), MNT_DETACH), 0);
}

TEST(IniConfigSave, LeavesTheOldFileWholeWhenFilesMayNotGrowSoLarge) {
    TemporaryFolder folder;
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    const rlimit small{65536, saved.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    expectFailedSaveToChangeNothing(folder);
    {
        // The same where the folder does not allow a new file beside the old one.
        chmod(folder.path().c_str(), 0555);
        chmod((folder / "settings").c_str(), 0666);
        PlainUser user;
        expectFailedSaveToChangeNothing(folder);
    }
    chmod(folder.path().c_str(), 0755);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, handler);
}

constexpr int kEntries = 300;

// Settings that are whole only when all entries have the same value; the files differ in length.
void saveVersion(IniConfig& config, int version) {
    const std::string value(static_cast<size_t>(1 + version % 50),
                            static_cast<char>('a' + version % 26));
    for (int i = 0; i < kEntries; ++i) config.set("key" + std::to_string(i), value, false);
    config.save();
}

bool isWhole(const std::string& path) {
    IniConfig config(path);
    const std::string value = config.get("key0", "");
    int equal = 0;
    for (int i = 0; i < kEntries; ++i) equal += config.get("key" + std::to_string(i), "-") == value;
    return equal == kEntries;
}

// A process that saves one version after another until it is killed, here or with its parent.
class SavingProcess {
  public:
    SavingProcess(const std::string& path, int version) {
        int ready[2];
        if (pipe(ready) != 0) std::abort();
        mChild = fork();
        if (mChild == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            IniConfig config(path);
            if (write(ready[1], "r", 1) != 1) _exit(1);
            for (;; ++version) saveVersion(config, version);
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1) << "the child never started";
        close(ready[0]);
    }
    ~SavingProcess() {
        kill(mChild, SIGKILL);
        waitpid(mChild, nullptr, 0);
    }
    SavingProcess(const SavingProcess&) = delete;
    SavingProcess& operator=(const SavingProcess&) = delete;

  private:
    pid_t mChild;
};

TEST(IniConfigSave, LeavesAWholeFileWheneverTheProcessIsKilled) {
    TemporaryFolder folder;
    const std::string path = folder / "settings";
    IniConfig first(path);
    saveVersion(first, 0);
    std::minstd_rand random(1);
    for (int round = 0; round < 200; ++round) {
        {
            SavingProcess saving(path, round);
            usleep(static_cast<useconds_t>(random() % 5000));
        }
        ASSERT_TRUE(isWhole(path)) << "round " << round;
    }
}

TEST(IniConfigSave, IsReadWholeWhileTwoProcessesSaveAtOnce) {
    TemporaryFolder folder;
    const std::string path = folder / "settings";
    IniConfig first(path);
    saveVersion(first, 0);
    SavingProcess one(path, 0), other(path, 13);
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(isWhole(path)) << i;
}

}  // namespace
}  // namespace vyn
