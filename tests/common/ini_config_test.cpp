// SPDX-License-Identifier: Apache-2.0

#include <sys/prctl.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <vyn/ini_config.h>

#include <csignal>

#include "support/support.h"

namespace vyn::testing {
namespace {

namespace fs = std::filesystem;

TEST(IniConfig, LoadsOverTheEntriesItHasAndSavesWhatItCouldReadToThePathLastLoaded) {
    TemporaryFolder folder;
    LogCapture log;
    IniConfig config;
    EXPECT_FALSE(config.save()) << "nowhere";
    for (const char* key : {"a", "b"}) config.set(key, "", false);
    EXPECT_TRUE(config.load(folder.write("settings", "# comment\nb=new\n")));
    EXPECT_FALSE(config.load(folder / "missing"));
    EXPECT_EQ(config.get("a", "default") + config.get("c", "default"), "default");
    EXPECT_EQ(folder.entries(), 1) << "loading makes no file";
    EXPECT_TRUE(config.set("c", "1", true));
    EXPECT_EQ(folder.read("missing"), "a=\nb=new\nc=1\n");
    EXPECT_EQ(folder.entries(), 2) << "no temporary file stays";
    IniConfig unread(folder.path());
    EXPECT_FALSE(unread.ok() || unread.set("a", "1", true));
    EXPECT_EQ(log.count("could not be read, so it is not saved: entries would be lost."), 1);
}

TEST(IniConfig, GivesValuesAndWarnsOnceOfWhatIsOfNoUse) {
    const TemporaryFolder folder;
    LogCapture log;
    const IniConfig config(
        folder.write("settings", "i=12\nd=-1.5e3\nb=yes\nl=5000000000\nx=1x\nempty=\n"));
    EXPECT_EQ(config.keys(), (Strings{"b", "d", "empty", "i", "l", "x"}));
    EXPECT_EQ(config.getInt("i", 0, 1, 12) + config.getDouble("d", 0), -1488);
    EXPECT_TRUE(config.getBool("b", false));
    EXPECT_EQ(config.getInt64("l", 0) + config.getInt("empty", 3), 5000000003);
    EXPECT_TRUE(log.lines().empty());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(config.getInt("i", 7, 0, 11), 7);
        EXPECT_EQ(config.getInt("l", 7) + config.getDouble("x", 7), 14);
    }
    EXPECT_EQ(log.count("settings i: \"12\" is of no use, taking \"7\"."), 1);
    EXPECT_EQ(log.lines().size(), 3u);
}

TEST(IniConfigSave, KeepsModeOwnerAndAttributesThroughLinksAndWithAnyName) {
    TemporaryFolder folder;
    fs::create_directory(folder / "real");
    const std::string path = folder.write("real/settings", ""), attribute(900, 'x');
    fs::create_symlink("real/settings", folder / "relative");
    fs::create_symlink(folder / "relative", folder / "absolute");
    const uid_t owner = geteuid() == 0 ? 65534 : geteuid();
    ASSERT_EQ(chmod(path.c_str(), 0604) | chown(path.c_str(), owner, getegid()), 0);
    const bool hasAttributes = setxattr(path.c_str(), "user.a", attribute.data(), 900, 0) == 0;
    const std::string longest(255, 'x');  // which leaves no room for that of a temporary file
    const mode_t saved = umask(027);
    EXPECT_TRUE(IniConfig(folder / "absolute").set("b", "2", true));
    EXPECT_TRUE(IniConfig(folder / longest).save());
    umask(saved);
    EXPECT_EQ(folder.read("real/settings"), "b=2\n");
    EXPECT_TRUE(fs::is_symlink(folder / "absolute") && fs::is_symlink(folder / "relative"));
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(status.st_mode & 07777, 0604u);
    EXPECT_EQ(getxattr(path.c_str(), "user.a", nullptr, 0), hasAttributes ? 900 : -1);
    EXPECT_EQ(fs::status(folder / longest).permissions(), fs::perms(0640));
    fs::create_symlink("circle", folder / "circle");
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
