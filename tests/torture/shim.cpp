// SPDX-License-Identifier: Apache-2.0

// Preloaded into a process, makes calls of libc fail. scripts/torture writes the plan, shares a
// page with the process and decides when the plan counts.
//
//     TORTURE_PAGE=FILE                             the page, see struct Page
//     TORTURE_PLAN=FUNCTION ACTION FIRST TIMES EVERY CALLER CALLER
//
// ACTION is the errno of the failure, or "short" for reading and writing less than is asked for.
// The FIRST call that matches fails, and so does each EVERYth one behind it, TIMES at most (0: no
// limit). A call matches when each CALLER, a return address as Page::Entry has it, is among its
// callers; 0 is any. Without a plan nothing fails, and the page's table lists who calls what.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace {

constexpr size_t kFrames = 12;

struct Call {
    char function[24] = "";
    uint64_t callers[kFrames] = {};  // the project's, innermost first: module << 48 | offset
};

struct Page {
    struct Entry {
        std::atomic<uint64_t> calls;
        Call call;
    };
    std::atomic<uint64_t> isArmed, matched, failed, calls, entries;  // armed by the driver
    Entry table[8192];
};

Page* gPage;
char gFunction[24], gAction[16];
unsigned long gFirst, gTimes, gEvery, gCallers[2];
std::atomic_flag gTableLock = ATOMIC_FLAG_INIT;
__attribute__((tls_model("initial-exec"))) thread_local bool tIsInside;

__attribute__((constructor)) void start() {
    const char* const path = std::getenv("TORTURE_PAGE");
    const int fd = path != nullptr ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0) return;
    if (const char* const plan = std::getenv("TORTURE_PLAN")) {
        std::sscanf(plan, "%23s %15s %lu %lu %lu %lx %lx", gFunction, gAction, &gFirst, &gTimes,
                    &gEvery, &gCallers[0], &gCallers[1]);
    }
    void* const page = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (page != MAP_FAILED) gPage = static_cast<Page*>(page);
}

_Unwind_Reason_Code noteCaller(_Unwind_Context* context, void* argument) {
    Call& call = *static_cast<Call*>(argument);
    uint64_t* const next = std::find(call.callers, std::end(call.callers), 0);
    const uintptr_t address = _Unwind_GetIP(context);
    dl_find_object found{};
    if (next == std::end(call.callers) ||
        _dl_find_object(reinterpret_cast<void*>(address), &found) != 0) {
        return _URC_NORMAL_STOP;
    }
    const link_map& module = *found.dlfo_link_map;
    const bool isProgram = module.l_name[0] == '\0';
    if (!isProgram && std::strstr(module.l_name, "libvyncore") == nullptr) return _URC_NO_REASON;
    *next = (isProgram ? 1ULL : 2ULL) << 48 | (address - module.l_addr);
    return _URC_NO_REASON;
}

void trace(const Call& call) {
    while (gTableLock.test_and_set(std::memory_order_acquire)) continue;
    Page::Entry* entry = gPage->table;
    while (entry->calls != 0 && std::memcmp(&entry->call, &call, sizeof call) != 0) ++entry;
    entry->call = call;
    if (entry->calls++ == 0) ++gPage->entries;
    gTableLock.clear(std::memory_order_release);
}

// Whether this call is one that the plan means.
bool isMeant(const char* function) {
    ++gPage->calls;
    const bool isTracing = gFunction[0] == '\0';
    if (!isTracing && (std::strcmp(function, gFunction) != 0 || gPage->isArmed == 0)) return false;
    Call call;
    std::strncpy(call.function, function, sizeof call.function - 1);
    _Unwind_Backtrace(noteCaller, &call);
    if (call.callers[0] == 0) return false;  // the loader, or another library by itself
    if (isTracing) return trace(call), false;
    for (const uint64_t caller : gCallers) {
        const auto matches = std::count(call.callers, std::end(call.callers), caller);
        if (caller != 0 && matches == 0) return false;
    }
    const uint64_t number = ++gPage->matched;
    if (number < gFirst || (number - gFirst) % gEvery != 0) return false;
    return gTimes == 0 || gPage->failed < gTimes;
}

// True when the call is to fail; errno says how. Otherwise `size`, if there is one, may be smaller.
bool fails(const char* function, long* size = nullptr) {
    if (gPage == nullptr || tIsInside) return false;
    tIsInside = true;
    const bool meant = isMeant(function);
    tIsInside = false;
    if (!meant) return false;
    ++gPage->failed;
    if (gAction[0] != 's') return errno = std::atoi(gAction), true;
    if (size != nullptr && *size > 1) *size = 1 + *size / 7;
    return false;
}

using Function = long(long, long, long, long, long, long);

}  // namespace

// The functions take and return at most six integers or pointers, which machines of 64 bits pass in
// registers: so one kind of wrapper does for all of them.
#define WRAP(name, body)                                                                \
    extern "C" long torture_##name(long, long, long, long, long, long) __asm__(#name);  \
    extern "C" long torture_##name(long a, long b, long c, long d, long e, long f) {    \
        static auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, #name)); \
        const auto call = [&] { return real(a, b, c, d, e, f); };                       \
        body                                                                            \
    }
#define AS(name, failure) WRAP(name, return fails(#name) ? failure : call();)
#define F(name) AS(name, -1)
#define NUL(name) AS(name, 0)
#define ERR(name) AS(name, errno)
#define SHORT(name) WRAP(name, return fails(#name, &c) ? -1 : call();)
// Does its work all the same.
#define LATE(name) WRAP(name, const long did = call(); return fails(#name) ? -1 : did;)
#define THROW(name) WRAP(name, if (fails(#name)) throw std::bad_alloc(); return call();)

// clang-format off
F(accept4) F(access) F(bind) F(chmod) F(connect) F(dup3) F(epoll_create1) F(epoll_ctl) F(epoll_wait)
F(fallocate64) F(fchmod) F(fchown) F(fcntl64) F(fgetxattr) F(flistxattr) F(flock) F(fsetxattr)
F(fstat64) F(fstatat64) F(fsync) F(ftruncate64) F(getifaddrs) F(getpeername) F(getsockname)
F(getsockopt) F(inotify_add_watch) F(inotify_init1) F(inotify_rm_watch) F(ioctl) F(listen)
F(lseek64) F(lstat64) F(nanosleep) F(open64) F(pipe) F(pipe2) F(poll) F(prctl) F(readlink)
F(recvmsg) F(rename) F(sendmsg) F(setsockopt) F(shutdown) F(signalfd) F(socket) F(stat) F(stat64)
F(timerfd_create) F(timerfd_settime) F(unlink) F(writev) AS(getaddrinfo, -3) ERR(posix_memalign)
ERR(pthread_cond_init) ERR(pthread_create) ERR(pthread_detach) ERR(pthread_key_create)
ERR(pthread_mutex_init) ERR(pthread_setspecific) LATE(close) LATE(closedir) LATE(fclose) NUL(calloc)
NUL(fopen64) NUL(getcwd) NUL(if_indextoname) NUL(if_nametoindex) NUL(malloc) NUL(opendir)
NUL(readdir64) NUL(realloc) SHORT(read) SHORT(recv) SHORT(recvfrom) SHORT(send) SHORT(sendto)
SHORT(write) THROW(_Znam) THROW(_Znwm) THROW(_ZnwmSt11align_val_t)
