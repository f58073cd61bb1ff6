#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <vyn/inotify_device.h>
#include <vyn/worker.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/loop_thread.h"
#include "support/record_feed.h"
#include "support/recording_executor.h"
#include "support/temporary_folder.h"

namespace vyn {
namespace {

using testing::LogCapture;
using testing::RecordFeed;
using testing::TemporaryFolder;

using Changes = std::vector<int>;

// A device with a worker and an executor that keeps what is reported.
struct Watcher {
    Watcher() : worker(&device, nullptr) {
        worker.attach(nullptr, &executor);
        executor.fileChanged = [this](Worker*, const std::string& path, int change) {
            lastPath = path;
            changes.push_back(change);
        };
        executor.disconnected = [this](Worker*) { ++disconnections; };
    }
    // Serves the descriptor until nothing is left, and takes what was reported meanwhile.
    Changes drain() {
        pollfd entry{device.getFd(), POLLIN, 0};
        while (poll(&entry, 1, 0) == 1) device.onDataArrival(device.getFd());
        return std::exchange(changes, {});
    }

    testing::RecordingExecutor executor;
    InotifyDevice device;
    Worker worker;
    std::string lastPath;
    Changes changes;
    int disconnections = 0;
};

int createFile(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
}

std::string record(uint32_t mask, uint32_t nameLength, const std::string& name) {
    inotify_event event{};
    event.wd = 1;
    event.mask = mask;
    event.len = nameLength;
    return testing::bytesOf(event) + name;
}

TEST(InotifyDevice, ReportsWhatHappensToTheFilesOfADirectory) {
    TemporaryFolder directory;
    Watcher watcher;
    watcher.device.watch(directory.path());
    for (const std::string& name : {std::string("short"), std::string(255, 'n')}) {
        const std::string file = directory / name;
        const int fd = createFile(file);
        EXPECT_EQ(watcher.drain(), (Changes{256, -1}));  // opened, too
        EXPECT_EQ(watcher.lastPath, directory.path());
        EXPECT_EQ(write(fd, "x", 1), 1);
        EXPECT_EQ(watcher.drain(), (Changes{2}));
        close(fd);
        EXPECT_EQ(watcher.drain(), (Changes{-1}));
        EXPECT_EQ(rename(file.c_str(), (directory / "renamed").c_str()), 0);
        EXPECT_EQ(watcher.drain(), (Changes{-1, -1}));
        unlink((directory / "renamed").c_str());
        EXPECT_EQ(watcher.drain(), (Changes{512}));
    }
    EXPECT_EQ(watcher.disconnections, 0);
}

TEST(InotifyDevice, ReportsABurstWholeAndInOrder) {
    TemporaryFolder directory;
    Watcher watcher;
    watcher.device.watch(directory.path());
    Changes expected;
    for (int i = 0; i < 500; ++i) {
        const std::string name = directory / std::to_string(i);
        close(createFile(name));
        unlink(name.c_str());
        expected.insert(expected.end(), {256, -1, -1, 512});
    }
    EXPECT_EQ(watcher.drain(), expected);
}

TEST(InotifyDevice, StaysSilentWhenTheDirectoryItselfGoes) {
    TemporaryFolder directory;
    const std::string watched = directory / "watched";
    std::filesystem::create_directory(watched);
    Watcher watcher;
    watcher.device.watch(watched);
    std::filesystem::remove(watched);
    ASSERT_TRUE(testing::awaitReadable(watcher.device.getFd()));
    EXPECT_EQ(watcher.drain(), Changes{});
    EXPECT_EQ(watcher.disconnections, 0);
}

TEST(InotifyDevice, ReportsTheLastPathAlsoWhenItCannotBeWatched) {
    TemporaryFolder directory;
    Watcher watcher;
    watcher.device.watch(directory.path());
    LogCapture capture;
    watcher.device.watch("/no/such/place");
    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{"[2] No such file or directory. ret < 0. watch path failed: "
                                       "/no/such/place"});
    close(createFile(directory / "file"));
    EXPECT_EQ(watcher.drain().size(), 3u);
    EXPECT_EQ(watcher.lastPath, "/no/such/place");
}

TEST(InotifyDevice, OwnsACloseOnExecDescriptorAndWritesNothing) {
    LogCapture capture;
    InotifyDevice device;
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"\033[1;33;40mRun here! mFd: " +
                                                        std::to_string(device.getFd())});
    EXPECT_NE(fcntl(device.getFd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_STREQ(device.getClassName(), "InotifyDevice");
    EXPECT_EQ(device.write("x", 1), 1);
}

TEST(InotifyDevice, LogsThatItHasNoDescriptor) {
    Watcher().drain();  // shows the sanitizer its classes, see ExhaustedDescriptors
    std::unique_ptr<Watcher> failed;
    LogCapture capture;
    {
        testing::ExhaustedDescriptors none;
        failed = std::make_unique<Watcher>();
    }
    EXPECT_EQ(failed->device.getFd(), -1);
    const std::vector<std::string> texts = capture.texts();
    ASSERT_EQ(texts.size(), 4u);  // the first two tell of the descriptors
    EXPECT_EQ(texts[2], "\033[1;33;40mRun here! mFd: -1");
    EXPECT_EQ(texts[3], "[24] Too many open files. mFd == -1. inotify init fail.");
}

TEST(InotifyDevice, PassesOverRecordsWithoutANameAndStopsAtOnesThatReachTooFar) {
    Watcher watcher;
    RecordFeed feed(watcher.device.getFd());
    LogCapture capture;
    ASSERT_TRUE(feed.send(record(IN_Q_OVERFLOW, 0, "")));
    EXPECT_EQ(watcher.drain(), Changes{});
    ASSERT_TRUE(feed.send(record(IN_DELETE_SELF, 0, "") + record(IN_IGNORED, 0, "") +
                          record(IN_CREATE | IN_DELETE, 4, "abcd") + record(IN_MODIFY, 1, "x")));
    EXPECT_EQ(watcher.drain(), (Changes{256, 2}));
    EXPECT_TRUE(capture.texts().empty());

    ASSERT_TRUE(feed.send(record(IN_DELETE, 4, "abcd") + record(IN_CREATE, UINT32_MAX, "abcd")));
    EXPECT_EQ(watcher.drain(), (Changes{512}));
    EXPECT_EQ(capture.texts().size(), 1u);
}

TEST(InotifyDevice, AShortReadDisconnects) {
    Watcher watcher;
    RecordFeed feed(watcher.device.getFd());
    ASSERT_TRUE(feed.send(std::string(15, 'x')));
    watcher.device.onDataArrival(watcher.device.getFd());
    EXPECT_EQ(watcher.disconnections, 1);
    feed.end();
    watcher.device.onDataArrival(watcher.device.getFd());
    EXPECT_EQ(watcher.disconnections, 2);
}

TEST(InotifyDevice, MayBeDeletedWhileChangesAreLeft) {
    auto device = std::make_unique<InotifyDevice>();
    Worker worker(device.get(), nullptr);
    testing::RecordingExecutor executor;
    worker.attach(nullptr, &executor);
    TemporaryFolder directory;
    device->watch(directory.path());
    std::vector<std::string> paths;
    executor.fileChanged = [&](Worker*, const std::string& path, int) {
        device.reset();
        paths.push_back(path);
    };
    close(createFile(directory / "file"));
    device->onDataArrival(device->getFd());
    EXPECT_EQ(paths, std::vector<std::string>{directory.path()});
}

TEST(InotifyDevice, OutlivesItsWorkerWhileChangesAreLeft) {
    InotifyDevice device;
    auto worker = std::make_unique<Worker>(&device, nullptr);
    testing::RecordingExecutor executor;
    worker->attach(nullptr, &executor);
    TemporaryFolder directory;
    device.watch(directory.path());
    int reports = 0;
    executor.fileChanged = [&](Worker*, const std::string&, int) {
        ++reports;
        worker.reset();
    };
    close(createFile(directory / "file"));
    device.onDataArrival(device.getFd());
    EXPECT_EQ(reports, 1);
}

TEST(InotifyDevice, ReportsThroughTheLoop) {
    TemporaryFolder directory;
    testing::RecordingExecutor executor;
    std::promise<int> reported;
    executor.fileChanged = [&, first = true](Worker*, const std::string&, int change) mutable {
        if (std::exchange(first, false)) reported.set_value(change);
    };
    InotifyDevice device;
    Worker worker(&device, nullptr);
    device.watch(directory.path());
    testing::LoopThread loop;
    loop.connector().addWorkerLocked(&worker, &executor);
    close(createFile(directory / "file"));
    EXPECT_EQ(reported.get_future().get(), 256);
    loop.call([&] { loop.connector().removeWorkerLocked(&worker); });
}

}  // namespace
}  // namespace vyn
