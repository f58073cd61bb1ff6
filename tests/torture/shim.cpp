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
#include <netdb.h>
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

struct Page {
    struct Entry {
        std::atomic<uint64_t> calls;
        char function[24];
        uint64_t callers[kFrames];  // the project's, innermost first: module << 48 | offset
    };
    std::atomic<uint64_t> isArmed, matched, failed, calls, entries;  // armed by the driver
    Entry table[8192];
};

struct Module {
    uintptr_t base, begin, end;
};

struct Callers {
    uint64_t address[kFrames] = {};
    size_t count = 0;
};

Page* gPage;
char gFunction[24], gAction[16];
unsigned long gFirst, gTimes, gEvery, gCallers[2];
Module gModules[2];  // the program and the library
std::atomic_flag gTableLock = ATOMIC_FLAG_INIT;
__attribute__((tls_model("initial-exec"))) thread_local bool tIsInside;

int noteModule(dl_phdr_info* info, size_t, void*) {
    const bool isProgram = info->dlpi_name[0] == '\0' && gModules[0].end == 0;
    if (!isProgram && std::strstr(info->dlpi_name, "libvyncore") == nullptr) return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
        const uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
        gModules[isProgram ? 0 : 1] = {info->dlpi_addr, begin, begin + segment.p_memsz};
    }
    return 0;
}

__attribute__((constructor)) void start() {
    const char* const path = std::getenv("TORTURE_PAGE");
    const int fd = path != nullptr ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0) return;
    dl_iterate_phdr(noteModule, nullptr);
    if (const char* const plan = std::getenv("TORTURE_PLAN")) {
        std::sscanf(plan, "%23s %15s %lu %lu %lu %lx %lx", gFunction, gAction, &gFirst, &gTimes,
                    &gEvery, &gCallers[0], &gCallers[1]);
    }
    void* const page = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (page != MAP_FAILED) gPage = static_cast<Page*>(page);
}

_Unwind_Reason_Code noteCaller(_Unwind_Context* context, void* argument) {
    auto& callers = *static_cast<Callers*>(argument);
    const uintptr_t address = _Unwind_GetIP(context);
    for (uint64_t i = 0; i < std::size(gModules); ++i) {
        if (address < gModules[i].begin || address >= gModules[i].end) continue;
        callers.address[callers.count++] = (i + 1) << 48 | (address - gModules[i].base);
    }
    return callers.count < kFrames ? _URC_NO_REASON : _URC_NORMAL_STOP;
}

void trace(const char* function, const Callers& callers) {
    while (gTableLock.test_and_set(std::memory_order_acquire)) continue;
    Page::Entry* entry = gPage->table;
    Page::Entry* const end = entry + gPage->entries;
    while (entry < end && (std::strcmp(entry->function, function) != 0 ||
                           std::memcmp(entry->callers, callers.address, sizeof entry->callers))) {
        ++entry;
    }
    if (entry == end && gPage->entries < std::size(gPage->table) - 1) {
        std::strncpy(entry->function, function, sizeof entry->function - 1);
        std::memcpy(entry->callers, callers.address, sizeof entry->callers);
        ++gPage->entries;
    }
    ++entry->calls;
    gTableLock.clear(std::memory_order_release);
}

// Whether this call is one that the plan means.
bool isMeant(const char* function) {
    ++gPage->calls;
    const bool isTracing = gFunction[0] == '\0';
    if (!isTracing && (std::strcmp(function, gFunction) != 0 || gPage->isArmed == 0)) return false;
    Callers callers;
    _Unwind_Backtrace(noteCaller, &callers);
    if (isTracing && callers.count > 0) trace(function, callers);
    if (isTracing || callers.count == 0) return false;  // none: the loader, or another library
    const uint64_t* const begin = callers.address;
    for (const uint64_t caller : gCallers) {
        if (caller != 0 && std::count(begin, begin + kFrames, caller) == 0) return false;
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
#define FAILING_AS(name, failure) WRAP(name, return fails(#name) ? failure : call();)
#define FAILING(name) FAILING_AS(name, -1)
#define FAILING_NULL(name) FAILING_AS(name, 0)
#define FAILING_ERROR(name) FAILING_AS(name, errno)
#define FAILING_OR_SHORT(name) WRAP(name, return fails(#name, &c) ? -1 : call();)
// Does its work all the same.
#define FAILING_LATE(name) WRAP(name, const long did = call(); return fails(#name) ? -1 : did;)
#define THROWING(name) WRAP(name, if (fails(#name)) throw std::bad_alloc(); return call();)

// clang-format off
FAILING(accept4) FAILING(access) FAILING(bind) FAILING(chmod) FAILING(connect) FAILING(dup3)
FAILING(epoll_create1) FAILING(epoll_ctl) FAILING(epoll_wait) FAILING(fallocate64) FAILING(fchmod)
FAILING(fchown) FAILING(fcntl64) FAILING(fgetxattr) FAILING(flistxattr) FAILING(flock)
FAILING(fsetxattr) FAILING(fstat64) FAILING(fstatat64) FAILING(fsync) FAILING(ftruncate64)
FAILING(getifaddrs) FAILING(getpeername) FAILING(getsockname) FAILING(getsockopt)
FAILING(inotify_add_watch) FAILING(inotify_init1) FAILING(inotify_rm_watch) FAILING(ioctl)
FAILING(listen) FAILING(lseek64) FAILING(lstat64) FAILING(nanosleep) FAILING(open64) FAILING(pipe)
FAILING(pipe2) FAILING(poll) FAILING(prctl) FAILING(readlink) FAILING(recvmsg) FAILING(rename)
FAILING(sendmsg) FAILING(setsockopt) FAILING(shutdown) FAILING(signalfd) FAILING(socket)
FAILING(stat) FAILING(stat64) FAILING(timerfd_create) FAILING(timerfd_settime) FAILING(unlink)
FAILING(writev) FAILING_AS(getaddrinfo, EAI_AGAIN) FAILING_ERROR(pthread_cond_init)
FAILING_ERROR(pthread_create) FAILING_ERROR(pthread_detach) FAILING_ERROR(pthread_key_create)
FAILING_ERROR(pthread_mutex_init) FAILING_ERROR(pthread_setspecific) FAILING_LATE(close)
FAILING_LATE(closedir) FAILING_LATE(fclose) FAILING_NULL(calloc) FAILING_NULL(fopen64)
FAILING_NULL(getcwd) FAILING_NULL(if_indextoname) FAILING_NULL(if_nametoindex) FAILING_NULL(malloc)
FAILING_NULL(opendir) FAILING_NULL(readdir64) FAILING_NULL(realloc) FAILING_OR_SHORT(read)
FAILING_OR_SHORT(recv) FAILING_OR_SHORT(recvfrom) FAILING_OR_SHORT(send) FAILING_OR_SHORT(sendto)
FAILING_OR_SHORT(write) THROWING(_Znam) THROWING(_Znwm)
