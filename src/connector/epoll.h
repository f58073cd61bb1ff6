#pragma once

#include <sys/epoll.h>

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

// An epoll instance; all registrations are level-triggered. The kernel does the locking.
class Epoll {
  public:
    Epoll();
    ~Epoll();
    Epoll(const Epoll&) = delete;
    Epoll& operator=(const Epoll&) = delete;

    // False when the process is out of descriptors.
    bool isOpen() const { return mFd >= 0; }

    // Watches a descriptor for reading. Returns 0, or the errno of a refusal: EEXIST when it is
    // watched already.
    int add(EpollToken token);
    // Sets the token, and the interest in writing beside that in reading.
    void modify(EpollToken token, bool write);
    void remove(int fd);

    // epoll_wait: the number of events, or a negative value when interrupted.
    int wait(epoll_event* events, int most, int timeoutMs);

    // Starts over with an empty set. Returns false, with the old set, when there is no new one.
    bool reopen();

  private:
    int mFd;
};

}  // namespace vyn
