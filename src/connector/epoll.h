// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <cstdint>

namespace vyn {

// What an event carries: the descriptor and the generation of its registration. The number of a
// closed descriptor is soon used again; the generation tells the events of the two apart.
struct EpollToken {
    int fd;
    uint32_t generation;

    uint64_t pack() const { return uint64_t{generation} << 32 | static_cast<uint32_t>(fd); }
    static EpollToken of(const epoll_event& event) {
        return {static_cast<int>(event.data.u64 & 0xFFFFFFFF),
                static_cast<uint32_t>(event.data.u64 >> 32)};
    }
};

// An epoll instance; all registrations are level-triggered. The kernel does the locking, so any
// thread may change what is watched, also while the loop waits or the set is replaced.
class Epoll {
  public:
    Epoll();
    ~Epoll();
    Epoll(const Epoll&) = delete;
    Epoll& operator=(const Epoll&) = delete;

    // False when the process is out of descriptors; error() is the errno of that.
    bool isOpen() const { return number() >= 0; }
    int error() const { return mError; }

    // Watches a descriptor for `interest`, such as EPOLLIN. Returns 0, or the errno of a refusal:
    // EEXIST when it is watched already.
    int add(EpollToken token, uint32_t interest);
    // Sets the token and the interest. Returns 0, or the errno of a refusal: ENOENT when what is
    // open under this number is not what was added.
    int modify(EpollToken token, uint32_t interest);
    void remove(int fd);

    static constexpr int kMostEvents = 20;  // a wait's
    // epoll_wait: the number of events, or a negative value with errno. There is room for
    // kMostEvents.
    int wait(epoll_event* events, int timeoutMs);

    // Takes over the other's set and closes the own. It keeps its number, as other threads may be
    // about to use that; unless it `isLost`: somebody closed it, and the number may be another's by
    // now. Returns 0, or an errno and has done nothing.
    [[nodiscard]] int replaceBy(Epoll& other, bool isLost);

  private:
    int control(int operation, EpollToken token, uint32_t interest);
    int number() const { return mFd.load(std::memory_order_acquire); }

    std::atomic<int> mFd;  // whoever reads a number finds its set made
    int mError;
};

}  // namespace vyn
