# SPDX-License-Identifier: Apache-2.0

"""What can be made to fail, and how: each function with the errors that its manual page names."""

import errno
import signal

DESCRIPTORS = ["EMFILE", "ENFILE"]
NO_MEMORY = ["ENOMEM"]
FILES = ["EIO", "EACCES", "ENOSPC", "EROFS"]
BROKEN = ["ECONNRESET", "EPIPE", "ETIMEDOUT"]

ERRORS = {
    "accept4": DESCRIPTORS + ["ECONNABORTED", "ENOBUFS", "EPERM", "EINTR", "EAGAIN"],
    "access": FILES,
    "bind": ["EADDRINUSE", "EACCES", "ENOMEM"],
    "calloc": NO_MEMORY,
    "chmod": ["EPERM", "EROFS"],
    "close": ["EIO", "EINTR"],
    "closedir": ["EBADF"],
    "connect": ["ECONNREFUSED", "EINTR", "EAGAIN"],
    "dup3": ["EBADF", "EINTR"],
    "epoll_create1": DESCRIPTORS + NO_MEMORY,
    "epoll_ctl": ["ENOMEM", "ENOSPC", "EPERM"],
    "epoll_wait": ["EINTR", "EBADF", "EINVAL"],
    "fallocate64": ["ENOSPC", "EOPNOTSUPP", "EINTR"],
    "fchmod": ["EPERM", "EIO"],
    "fchown": ["EPERM", "EIO"],
    "fclose": ["EIO", "ENOSPC"],
    "fcntl64": ["EMFILE", "EBADF", "ENOLCK"],
    "fgetxattr": ["ERANGE", "ENOTSUP"],
    "flistxattr": ["ERANGE", "ENOTSUP"],
    "flock": ["EWOULDBLOCK", "EINTR", "ENOLCK"],
    "fopen64": DESCRIPTORS + FILES,
    "fsetxattr": ["ENOSPC", "EPERM"],
    "fstat64": ["ENOMEM", "EIO"],
    "fstatat64": ["ENOMEM", "EIO"],
    "fsync": ["EIO", "ENOSPC"],
    "ftruncate64": ["EIO", "EINTR"],
    "getaddrinfo": ["EAGAIN"],
    "getcwd": ["ENOENT", "ENOMEM"],
    "getifaddrs": ["EMFILE", "ENOBUFS"],
    "getpeername": ["ENOTCONN", "ENOBUFS"],
    "getsockname": ["ENOBUFS"],
    "getsockopt": ["ENOBUFS", "ENOPROTOOPT"],
    "if_indextoname": ["ENXIO", "EMFILE"],
    "if_nametoindex": ["ENODEV", "EMFILE"],
    "inotify_add_watch": ["ENOSPC", "EACCES", "ENOMEM"],
    "inotify_init1": DESCRIPTORS + NO_MEMORY,
    "inotify_rm_watch": ["EINVAL"],
    "ioctl": ["ENODEV", "EPERM"],
    "listen": ["EADDRINUSE"],
    "lseek64": ["EINVAL"],
    "lstat64": FILES,
    "malloc": NO_MEMORY,
    "nanosleep": ["EINTR"],
    "open64": DESCRIPTORS + FILES + ["EINTR"],
    "opendir": DESCRIPTORS + ["EACCES"],
    "pipe": DESCRIPTORS,
    "pipe2": DESCRIPTORS,
    "poll": ["EINTR", "ENOMEM"],
    "posix_memalign": NO_MEMORY,
    "prctl": ["EFAULT"],
    "pthread_cond_init": ["EAGAIN", "ENOMEM"],
    "pthread_create": ["EAGAIN"],
    "pthread_detach": ["EINVAL"],
    "pthread_key_create": ["EAGAIN", "ENOMEM"],
    "pthread_mutex_init": ["EAGAIN", "ENOMEM"],
    "pthread_setspecific": ["ENOMEM"],
    "read": ["short", "EIO", "EINTR", "EAGAIN"],
    "readdir64": ["EIO"],
    "readlink": ["EIO", "EACCES", "ENOMEM"],
    "realloc": NO_MEMORY,
    "recv": ["short", "EINTR", "EAGAIN", "ENOMEM"] + BROKEN,
    "recvfrom": ["short", "EINTR", "EAGAIN", "ENOMEM"] + BROKEN,
    "recvmsg": ["EINTR", "EAGAIN", "ENOBUFS", "ENOMEM"],
    "rename": FILES + ["EXDEV", "EBUSY"],
    "send": ["short", "EINTR", "EAGAIN", "ENOBUFS", "ENOMEM"] + BROKEN,
    "sendmsg": ["EINTR", "EAGAIN", "ENOBUFS", "ENOMEM"] + BROKEN,
    "sendto": ["short", "EINTR", "EAGAIN", "ENOBUFS", "ENOMEM"] + BROKEN,
    "setsockopt": ["ENOMEM", "ENOPROTOOPT", "EPERM"],
    "shutdown": ["ENOTCONN"],
    "signalfd": DESCRIPTORS + NO_MEMORY,
    "socket": DESCRIPTORS + ["ENOBUFS", "EACCES"],
    "stat": FILES,
    "stat64": FILES + NO_MEMORY,
    "timerfd_create": DESCRIPTORS + NO_MEMORY,
    "timerfd_settime": ["EINVAL"],
    "unlink": FILES,
    "write": ["short", "EIO", "ENOSPC", "EINTR", "EAGAIN"],
    "writev": ["EIO", "ENOSPC", "EINTR"],
    "_Znam": NO_MEMORY,
    "_Znwm": NO_MEMORY,
    "_ZnwmSt11align_val_t": NO_MEMORY,
}

ALLOCATIONS = {
    "calloc", "malloc", "posix_memalign", "realloc", "_Znam", "_Znwm", "_ZnwmSt11align_val_t",
}

# Of what belongs to one connection. Where it fails once, one connection may end; where it goes on
# failing, all may. Everything else is to cost nobody the connection.
OF_CONNECTIONS = {
    "accept4", "dup3", "epoll_ctl", "fcntl64", "getpeername", "getsockname", "getsockopt", "recv",
    "recvfrom", "send", "sendmsg", "sendto", "setsockopt", "shutdown",
} | ALLOCATIONS

# Failures that need no line: of a function, wherever or in one of the project's functions.
WITHOUT_LINE = {
    ("_Znwm", ""): "one that is not passed on was caught by a stream, as the standard has it",
    ("bind", "UnixSocket::bind"): "tried again once the file is known to be abandoned; else fatal",
    ("close", ""): "the descriptor is closed all the same",
    ("closedir", ""): "likewise",
    ("fclose", ""): "the file was only made or read",
    ("fcntl64", "io::setNonBlocking"): "no write waits for a peer, in neither mode",
    ("fcntl64", "io::connectWithin"): "told to the caller, who tells of it",
    ("fcntl64", "io::refillSpare"): "tried again later; what comes of it is told when it is missed",
    ("fstat64", "platform::kindOfErrors"): "of the line itself; the careful way is taken",
    ("fsync", "syncDirectoryOf"): "the content is whole either way",
    ("fopen64", "RecorderService::RecorderService"): "tried again before anything is recorded",
    ("getpeername", ""): "an address that is not shown",
    ("fcntl64", "WatchedDescriptors::"): "asks for the mode of a descriptor that it knows",
    ("fcntl64", "WorkerRegistry::canWriteNow"): "likewise",
    ("getsockname", "ClientLink::isConnectedToItself"): "taken for a server, as nearly all are",
    ("getsockname", "UnixSocket::getLocalAddr"): "an address that is not shown",
    ("open64", "io::refillSpare"): "as above",
    ("open64", "readRandomDevice"): "told at verbose level, since there are other identifiers",
    ("open64", "syncDirectoryOf"): "as above",
    ("getsockopt", "outlivesEmptyRead"): "what can not be told from a stream's end is one",
    ("malloc", "platform::writeLine"): "of the line itself",
    ("malloc", "serve in"): "a buffer of the standard output's, which does without",
    ("read", "readRandomDevice"): "told at verbose level, since there are other identifiers",
    ("poll", "WakePipe::"): "looked again at the end of the next wait",
    ("prctl", ""): "a thread's name, for ps alone",
    ("pthread_detach", ""): "the thread ends all the same",
    ("setsockopt", ""): "what it leads to is told, such as a port that is in use",
    ("realloc", "ArchiveItems::resize"): "a smaller block will do, or bad_alloc follows",
    ("shutdown", ""): "the connection ends in any case",
    ("unlink", ""): "what stays behind is reported by who wants its name",
}

# Failures that take away what does not come back, as described: what the gateway is without.
LASTING = {
    ("calloc", "ThreadPool::startThreads"): "snapshots",
    ("pthread_create", "ThreadPool::startThreads"): "snapshots",
}

# Errors that a place can not meet, and why.
NOT_THERE = {
    ("epoll_ctl", "Epoll::remove", "ENOMEM"): "taking out asks for nothing",
    ("epoll_ctl", "Epoll::remove", "ENOSPC"): "likewise",
    ("epoll_ctl", "Epoll::remove", "EPERM"): "likewise",
    ("getsockname", "Socket::localAddress", "ENOBUFS"): "a bound socket has an address",
    ("getsockopt", "isDatagramSocket", "ENOBUFS"): "a socket knows what it is",
    ("getsockopt", "isDatagramSocket", "ENOPROTOOPT"): "likewise",
}

# There is another way, or another try: only when somebody notices, a line is to tell of it.
WITH_ANOTHER_WAY = {
    ("", "src/common/file_replacement.cpp"): "how a file is replaced",
    ("", "src/common/descriptor.h"): "likewise",
    ("epoll_ctl", ""): "what is watched already is so in any case",
    ("getsockopt", "peerCredentials"): "whether it listens; if so, it has no peer",
    ("write", "WakePipe::"): "written again",
}

# Imported, and they can not fail, or their failing means nothing but what they say, or only a fault
# of the program can make them fail.
NEVER_FAILING = set("""
    abort atoi clock_getres clock_gettime dirfd free freeaddrinfo freeifaddrs gai_strerror
    getenv geteuid getpid gettimeofday htonl htons inet_ntop inet_pton isatty kill memchr memcmp
    memcpy memmove memrchr memset ntohs pthread_cond_broadcast pthread_cond_clockwait
    pthread_cond_destroy pthread_cond_signal pthread_cond_timedwait pthread_cond_wait
    pthread_getspecific pthread_kill pthread_mutex_destroy pthread_mutex_lock
    pthread_mutex_trylock pthread_mutex_unlock pthread_once pthread_rwlock_rdlock
    pthread_rwlock_trywrlock pthread_rwlock_unlock pthread_rwlock_wrlock pthread_self
    pthread_sigmask rand sched_yield sigaddset sigemptyset sigismember sigpending sigtimedwait
    sigwait sleep snprintf srand strchr strcmp strcspn strerror strlen strncmp strnlen strpbrk
    strspn strstr strtol strtoll strtoul strtoull syscall vsnprintf
""".split())


def passes(function, action):
    """Whether a failure comes to nothing: what was to be done is done later."""
    if action in ("EINTR", "short"):
        return True
    if function in ("send", "sendmsg", "sendto"):
        return action in ("EAGAIN", "ENOBUFS", "ENOMEM")
    return action == "EAGAIN" and function in ("accept4", "recvmsg", "write")


def comes_and_goes(function, action):
    """Whether a failure can not last: it is then made every other time, and not every time."""
    ends = {"EINTR", "EAGAIN"} | ({"ENOBUFS"} if function == "recvmsg" else set())
    return action in ends and function != "pthread_create"


def can_meet(function, label, action):
    return not any((function, action) == (of, error) and place in label
                   for of, place, error in NOT_THERE)


def number(action):
    """What the shim is told."""
    return action if action == "short" else str(getattr(errno, action))


def ending(status):
    """How a process ended, in words."""
    return f"signal {signal.Signals(-status).name}" if status < 0 else f"status {status}"
