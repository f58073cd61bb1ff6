// What becomes of files, pools and conditions when the system refuses a call. The calls are defined
// here in front of the C library's own, so a test can make each fail when it wants to.

#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <vyn/file_utils.h>
#include <vyn/ini_config.h>
#include <vyn/thread_pool.h>

#include <cstring>

#include "support/support.h"

namespace {

std::atomic<const char*> gRefused{""};
std::atomic<int> gError{0};
std::atomic<int> gGranted{0};  // calls that still succeed
std::atomic<int> gLeft{0};     // and those that then fail

// While it lives, a call fails: all but the first ones, and so many times.
class Refusal {
  public:
    Refusal(const char* call, int error, int granted = 0, int times = 1000000) {
        gError = error;
        gGranted = granted;
        gLeft = times;
        gRefused = call;
    }
    ~Refusal() { gRefused = ""; }
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;

    bool isUsedUp() const { return gLeft <= 0; }
};

// The error, or 0 when the call is granted.
int refusal(const char* call) {
    if (std::strcmp(gRefused, call) != 0 || gGranted-- > 0 || gLeft-- <= 0) return 0;
    return errno = gError;
}

template <typename Call>
Call* real(Call*, const char* name) {
    return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int fstat(int fd, struct stat* status) noexcept {
    return refusal("fstat") != 0 ? -1 : real(&fstat, "fstat64")(fd, status);
}
int ftruncate(int fd, off_t size) noexcept {
    return refusal("ftruncate") != 0 ? -1 : real(&ftruncate, "ftruncate64")(fd, size);
}
ssize_t readlink(const char* path, char* to, size_t size) noexcept {
    return refusal("readlink") != 0 ? -1 : real(&readlink, "readlink")(path, to, size);
}
// Refused, it does not tell the kind of an entry.
dirent* readdir(DIR* directory) {
    dirent* entry = real(&readdir, "readdir64")(directory);
    if (entry != nullptr && refusal("readdir") != 0) entry->d_type = DT_UNKNOWN;
    return entry;
}
// Refused, the signal is lost.
int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    if (refusal("signal") != 0) return 0;
    return real(&pthread_cond_signal, "pthread_cond_signal")(condition);
}
int pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* how) noexcept {
    const int error = refusal("cond_init");
    return error != 0 ? error : real(&pthread_cond_init, "pthread_cond_init")(condition, how);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* how, void* (*routine)(void*),
                   void* argument) noexcept {
    const int error = refusal("pthread_create");
    if (error != 0) return error;
    return real(&pthread_create, "pthread_create")(thread, how, routine, argument);
}

namespace vyn {
namespace {

using testing::LogCapture;
using testing::TemporaryFolder;

TEST(FailingCalls, SavingLeavesFileModeAndLinkAsTheyWere) {
    for (const char* call : {"fstat", "readlink"}) {
        TemporaryFolder folder;
        chmod(folder.write("settings", "a=old\n").c_str(), 0604);
        std::filesystem::create_symlink("settings", folder / "link");
        LogCapture log;
        IniConfig config(folder / "link");
        config.set("a", "new", false);
        {
            const Refusal refusal(call, EIO);
            EXPECT_FALSE(config.save()) << call;
        }
        EXPECT_EQ(log.count("[5] Input/output error. save fail. " + (folder / "link")), 1) << call;
        EXPECT_EQ(folder.read("settings"), "a=old\n") << call;
        EXPECT_EQ(folder.entries(), 2) << call;
        EXPECT_TRUE(config.save()) << call;
        EXPECT_EQ(folder.read("settings"), "a=new\n") << call;
        EXPECT_TRUE(std::filesystem::is_symlink(folder / "link")) << call;
        struct stat status {};
        ASSERT_EQ(stat((folder / "settings").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0604u) << call;
    }
}

TEST(FailingCalls, RewritingPutsBackWhatCannotBeCut) {
    TemporaryFolder folder;
    const std::string old = "a=" + std::string(5000, 'x') + "\n";
    const std::string path = folder.write("settings", old);
    chmod(path.c_str(), 0666);
    chmod(folder.path().c_str(), 0555);
    {
        testing::PlainUser whoMustRewriteInPlace;
        IniConfig config(path);
        config.set("a", "1", false);
        const Refusal refusal("ftruncate", EIO);
        EXPECT_FALSE(config.save());
        EXPECT_EQ(folder.read("settings"), old);
        config.set("a", std::string(9000, 'y'), false);
        EXPECT_TRUE(config.save()) << "a file that grows is not cut";
    }
    chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(folder.read("settings"), "a=" + std::string(9000, 'y') + "\n");
}

TEST(FailingCalls, ReadingGivesTheErrorAndLeavesTheBuffer) {
    TemporaryFolder folder;
    const std::string path = folder.write("file", std::string(100000, 'x'));
    Buffer content("before");
    const Refusal refusal("fstat", EIO);
    EXPECT_EQ(readFile(path, content), -EIO);
    EXPECT_EQ(content.std_string(), "before");
}

TEST(FailingCalls, DirectoriesAreCountedWhereEntriesDoNotTellTheirKind) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "directory");
    std::filesystem::create_directory_symlink("directory", folder / "linktodir");
    folder.write("aboutfile", "");
    const Refusal refusal("readdir", EIO);
    EXPECT_EQ(getDirCount(folder.path()), 1);
}

TEST(FailingCalls, AConditionThatCouldNotBeMadeDoesNothing) {
    testing::FatalCapture fatal;
    const Refusal refusal("cond_init", ENOMEM);
    Condition condition;
    EXPECT_EQ(fatal.count("Check failed. (ret == 0)"), 1);
    EXPECT_EQ(condition.lock(), 0);
    EXPECT_EQ(condition.wait(), 0);
    EXPECT_EQ(condition.unlock(), 0);
}

// Counts how many of its kind were run and deleted.
struct CountedTask : ThreadPool::Task {
    ~CountedTask() override { ++sDeleted; }
    void run() override { ++sRun; }

    inline static std::atomic<int> sRun{0};
    inline static std::atomic<int> sDeleted{0};
};

TEST(FailingCalls, APoolOutlivesALostSignal) {
    for (const int threads : {1, 3}) {
        CountedTask::sRun = 0;
        ThreadPool pool(threads);
        int added = 1;
        {
            const Refusal refusal("signal", EINTR, 0, 1);
            for (; !refusal.isUsedUp(); ++added) pool.addTask(new CountedTask);
        }
        pool.addTask(new CountedTask);
        EXPECT_TRUE(testing::waitUntil([&] { return CountedTask::sRun == added; })) << threads;
    }
}

TEST(FailingCalls, APoolWorksWithTheThreadsThatTheSystemGrants) {
    for (const int granted : {2, 0}) {
        LogCapture log;
        CountedTask::sRun = CountedTask::sDeleted = 0;
        {
            const Refusal refusal("pthread_create", EAGAIN, granted);
            ThreadPool pool(5);
            for (int i = 0; i < 8; ++i) pool.addTask(new CountedTask);
        }
        EXPECT_EQ(CountedTask::sRun, granted == 0 ? 0 : 8);
        EXPECT_EQ(CountedTask::sDeleted, 8);
        EXPECT_EQ(log.count("[11] Resource temporarily unavailable. pthread_create fail. " +
                            std::to_string(5 - granted) + " of 5 worker threads not started."),
                  1);
    }
}

}  // namespace
}  // namespace vyn
