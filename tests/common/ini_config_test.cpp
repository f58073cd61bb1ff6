// SPDX-License-Identifier: Apache-2.0

#include <sys/prctl.h>
#include <sys/wait.h>
#include <vyn/ini_config.h>

#include <csignal>

#include "support/support.h"

namespace vyn::testing {
namespace {

namespace fs = std::filesystem;

TEST(IniConfig, ReadsTheEntriesOfItsLines) {
    TemporaryFolder folder;
    const std::pair<const char*, const char*> files[] = {
        {"key = value\n#x=1\n \t # y=2\nplain text\n\n", "key=value\n"},
        {"\t a b \v=\f c  d \r\n", "a b=c  d\n"},
        {"a=1 # no comment\na==b\n = \n", "=\na==b\n"},
        {"b=0\na=1\nB=3\nb=2\nc=3", "B=3\na=1\nb=2\n"},
    };
    for (const auto& [content, entries] : files) {
        EXPECT_EQ(printed(IniConfig(folder.write("settings", content))), entries);
    }
}

TEST(IniConfig, LoadsOverTheEntriesItHasAndSavesToThePathLastLoaded) {
    TemporaryFolder folder;
    IniConfig config;
    EXPECT_FALSE(config.save()) << "nowhere";
    for (const char* key : {"a", "b"}) config.set(key, "", false);
    config.load(folder.write("settings", "# comment\nb=new\n"));
    config.load(folder / "missing");
    EXPECT_EQ(config.get("a", "default") + config.get("c", "default"), "default");
    EXPECT_TRUE(config.exist("a") && !config.exist("c"));
    EXPECT_EQ(folder.entries(), 1) << "loading makes no file";
    config.set("c", "1", true);
    EXPECT_EQ(folder.read("missing"), "a=\nb=new\nc=1\n");
    EXPECT_EQ(folder.entries(), 2) << "no temporary file stays";
    EXPECT_FALSE(IniConfig(folder / "missing/settings").save() || IniConfig(folder.path()).save());
}

TEST(IniConfigSave, KeepsModeAndOwnerAndGivesANewFileThoseOfTheProcess) {
    TemporaryFolder folder;
    const std::string path = folder.write("settings", "");
    const uid_t owner = geteuid() == 0 ? 65534 : geteuid();
    ASSERT_EQ(chmod(path.c_str(), 0604) | chown(path.c_str(), owner, getegid()), 0);
    const mode_t saved = umask(027);
    IniConfig(path).set("b", "2", true);
    EXPECT_TRUE(IniConfig(folder / "new").save());
    umask(saved);
    EXPECT_EQ(folder.read("settings"), "b=2\n");
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(status.st_mode & 07777, 0604u);
    EXPECT_EQ(fs::status(folder / "new").permissions(), fs::perms(0640));
}

TEST(IniConfigSave, FollowsSymbolicLinks) {
    TemporaryFolder folder;
    fs::create_directory(folder / "real");
    fs::create_symlink("real/settings", folder / "relative");
    fs::create_symlink(folder / "relative", folder / "absolute");
    fs::create_symlink("circle", folder / "circle");
    for (const std::string value : {"created", "replaced"}) {
        IniConfig(folder / "absolute").set("a", value, true);
        EXPECT_EQ(folder.read("real/settings"), "a=" + value + "\n");
    }
    EXPECT_TRUE(fs::is_symlink(folder / "absolute") && fs::is_symlink(folder / "relative"));
    EXPECT_FALSE(IniConfig(folder / "circle").save());
}

TEST(IniConfigSave, WritesIntoAPipe) {
    TemporaryFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    IniConfig(pipe).set("a", "1", true);
    char content[16] = {};
    EXPECT_EQ(read(reader, content, sizeof content), 4);
    close(reader);
    EXPECT_TRUE(fs::is_fifo(pipe));
}

// A folder that allows no file beside the old one, then one that does; files may not grow large.
TEST(IniConfigSave, RewritesAFileThatItMayNotReplaceAndLeavesItWholeWhereItCannotBeWritten) {
    TemporaryFolder folder;
    const std::string path = folder.write("settings", "# longer than the new content\na=1\n");
    const std::string locked = folder.write("locked", "");
    fs::create_hard_link(path, folder / "same");
    ASSERT_EQ(chmod(path.c_str(), 0666) | chmod(locked.c_str(), 0444), 0);
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    const rlimit small{65536, saved.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    for (const mode_t mode : {0555u, 0777u}) {
        chmod(folder.path().c_str(), mode);
        const PlainUser user;
        EXPECT_TRUE(IniConfig(path).save());
        EXPECT_FALSE(IniConfig(mode == 0555 ? folder / "new" : locked).save());
        IniConfig large(path);
        large.set("b", std::string(300000, 'x'), false);
        EXPECT_FALSE(large.save());
        EXPECT_EQ(folder.read("settings"), "a=1\n");
        EXPECT_EQ(folder.read("same"), "a=1\n") << "rewritten in its place";
        EXPECT_EQ(folder.entries(), 3) << "no temporary file stays";
    }
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, handler);
}

std::string version(size_t number) {
    return std::string(100000 + number % 26 * 1000, static_cast<char>('a' + number % 26));
}

bool isWhole(const std::string& path) {
    const std::string value = IniConfig(path).get("key", "a");
    return value == version(static_cast<size_t>(value[0] - 'a'));
}

// A process that saves one version after another until it is killed, here or with its parent.
pid_t startSaving(const std::string& path, size_t number) {
    const pid_t child = fork();
    if (child == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (child == 0) IniConfig(path).set("key", version(number++), true);
    return child;
}

TEST(IniConfigSave, LeavesAWholeFileWheneverAProcessIsKilledAndWhileTwoSave) {
    TemporaryFolder folder;
    const std::string path = folder / "settings";
    IniConfig(path).set("key", version(0), true);
    for (size_t round = 0; round < 100; ++round) {
        const pid_t savers[] = {startSaving(path, round), startSaving(path, round + 13)};
        usleep(static_cast<useconds_t>(5000 + round * 37 % 5000));
        EXPECT_TRUE(isWhole(path)) << "round " << round;
        for (const pid_t saver : savers) kill(saver, SIGKILL);
        for (const pid_t saver : savers) waitpid(saver, nullptr, 0);
        ASSERT_TRUE(isWhole(path)) << "round " << round;
    }
}

}  // namespace
}  // namespace vyn::testing
