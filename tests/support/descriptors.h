#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vyn/logging.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <vector>

namespace vyn::testing {

// How many descriptors the process has open.
inline int openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all))) - 1;  // the directory's own
}

// Waits, for longer than any test should take, until `fd` is ready for `events`.
inline bool awaitReady(int fd, short events) {
    pollfd entry{fd, events, 0};
    return poll(&entry, 1, 10000) == 1;
}
inline bool awaitReadable(int fd) { return awaitReady(fd, POLLIN); }

// Sees to it that the process may open `count` descriptors, as far as it is allowed to.
inline void allowDescriptors(rlim_t count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(count, limit.rlim_max));
    setrlimit(RLIMIT_NOFILE, &limit);
}

// The undefined-behaviour sanitizer opens descriptors when it meets a class for the first time, so
// the classes that log lines are made of had better meet it while there are some. Writes two lines.
inline void showClassesOfLines() {
    errno = EMFILE;
    for (int i = 0; i < 2; ++i) VYN_LOG_ERRNO_ERROR << "about to run out of descriptors";
    logging::LogMessage(logging::kTag, "", "", 0, logging::kLevelError, false, false)
        << "not " << errno << " written";
}

// While it lives, the process cannot open another descriptor.
class ExhaustedDescriptors {
  public:
    ExhaustedDescriptors() {
        showClassesOfLines();
        getrlimit(RLIMIT_NOFILE, &mLimit);
        rlimit lowered = mLimit;
        lowered.rlim_cur = 1024;
        setrlimit(RLIMIT_NOFILE, &lowered);
        for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) mFillers.push_back(fd);
    }
    ~ExhaustedDescriptors() {
        for (int fd : mFillers) close(fd);
        setrlimit(RLIMIT_NOFILE, &mLimit);
    }

  private:
    rlimit mLimit{};
    std::vector<int> mFillers;
};

}  // namespace vyn::testing
