#include "failing/FailingCalls.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

// Names that the linker makes for --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __real_openat(int folder, const char* path, int flags, ...);
extern "C" long __real_syscall(long number, ...);

namespace {

using Counters = std::array<std::atomic<uint32_t>, kFailingCalls.size()>;

struct Fault {
    size_t call = kFailingCalls.size();
    unsigned number = 0;
    int error = 0;
    int forGood = 0;

    Fault() {
        char name[64];
        const char* text = std::getenv("FAILING_CALL");
        if (text && std::sscanf(text, "%63s %u %d %d", name, &number, &error, &forGood) == 4)
            call = FailingCallNamed(name);
    }
};

// In a shared mapping, so that the counts are there however the process ends.
Counters& TheCounters() {
    static Counters& counters = []() -> Counters& {
        const char* path = std::getenv("FAILING_COUNTS");
        const int file = path ? __real_open(path, O_RDWR | O_CLOEXEC) : -1;
        void* shared = mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE,
                            file < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED, file, 0);
        if (shared == MAP_FAILED) std::abort();
        return *static_cast<Counters*>(shared);
    }();
    return counters;
}

// Whether this call has the fault.
bool IsTurn(size_t call) {
    static const Fault& fault = *new Fault;
    const uint32_t number = TheCounters()[call].fetch_add(1) + 1;
    if (call != fault.call || number < fault.number || (number > fault.number && !fault.forGood)) return false;
    errno = fault.error;
    return true;
}

}  // namespace

#define FAILING_IF(condition, result, failure, name, parameters, arguments)                                            \
    extern "C" result __real_##name parameters;                                                                        \
    extern "C" result __wrap_##name parameters;                                                                        \
    extern "C" result __wrap_##name parameters {                                                                       \
        static const size_t call = FailingCallNamed(#name);                                                            \
        if ((condition) && IsTurn(call)) return failure;                                                               \
        return __real_##name arguments;                                                                                \
    }
#define FAILING(name, parameters, arguments) FAILING_IF(true, int, -1, name, parameters, arguments)
#define FAILING_SIZE(name, parameters, arguments) FAILING_IF(true, ssize_t, -1, name, parameters, arguments)

FAILING(accept4, (int fd, sockaddr* address, socklen_t* size, int flags), (fd, address, size, flags))
FAILING(bind, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
FAILING(connect, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
FAILING(epoll_create1, (int flags), (flags))
FAILING_IF(operation == EPOLL_CTL_ADD, int, -1, epoll_ctl, (int ep, int operation, int fd, epoll_event* event),
           (ep, operation, fd, event))
FAILING(epoll_wait, (int ep, epoll_event* events, int most, int timeoutMs), (ep, events, most, timeoutMs))
FAILING(eventfd, (unsigned count, int flags), (count, flags))
FAILING(flock, (int fd, int operation), (fd, operation))
FAILING(fstat, (int fd, struct stat* info), (fd, info))
FAILING(fstatat, (int folder, const char* path, struct stat* info, int flags), (folder, path, info, flags))
FAILING(fsync, (int fd), (fd))
FAILING(getsockopt, (int fd, int level, int option, void* value, socklen_t* size), (fd, level, option, value, size))
FAILING(listen, (int fd, int backlog), (fd, backlog))
FAILING(mkdir, (const char* path, mode_t mode), (path, mode))
FAILING_IF(true, DIR*, nullptr, opendir, (const char* path), (path))
FAILING(poll, (pollfd * fds, nfds_t count, int timeoutMs), (fds, count, timeoutMs))
FAILING_IF(true, int, errno, posix_spawn,
           (pid_t * pid, const char* path, const posix_spawn_file_actions_t* actions,
            const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]),
           (pid, path, actions, attributes, arguments, environment))
FAILING_IF(true, int, errno, pthread_create,
           (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
           (thread, attributes, run, argument))
FAILING_SIZE(read, (int fd, void* bytes, size_t size), (fd, bytes, size))
FAILING_IF(true, dirent*, nullptr, readdir, (DIR * folder), (folder))
FAILING_SIZE(readlink, (const char* path, char* target, size_t size), (path, target, size))
FAILING_IF(true, char*, nullptr, realpath, (const char* path, char* resolved), (path, resolved))
FAILING_SIZE(recv, (int fd, void* bytes, size_t size, int flags), (fd, bytes, size, flags))
FAILING_SIZE(recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags))
FAILING(rename, (const char* from, const char* to), (from, to))
FAILING_SIZE(send, (int fd, const void* bytes, size_t size, int flags), (fd, bytes, size, flags))
FAILING_SIZE(sendmsg, (int fd, const msghdr* message, int flags), (fd, message, flags))
FAILING(signalfd, (int fd, const sigset_t* signals, int flags), (fd, signals, flags))
FAILING(socket, (int domain, int type, int protocol), (domain, type, protocol))
FAILING(stat, (const char* path, struct stat* info), (path, info))
FAILING(timerfd_create, (int clock, int flags), (clock, flags))
FAILING(unlink, (const char* path), (path))
FAILING(unlinkat, (int folder, const char* path, int flags), (folder, path, flags))
FAILING_IF(true, pid_t, -1, waitpid, (pid_t pid, int* status, int options), (pid, status, options))

// A close that fails has closed all the same.
extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd);
extern "C" int __wrap_close(int fd) {
    static const size_t call = FailingCallNamed("close");
    const int result = __real_close(fd);
    return IsTurn(call) ? -1 : result;
}

extern "C" ssize_t __real_writev(int fd, const iovec* parts, int count);
extern "C" ssize_t __wrap_writev(int fd, const iovec* parts, int count);
extern "C" ssize_t __wrap_writev(int fd, const iovec* parts, int count) {
    static const size_t call = FailingCallNamed("writev");
    if (!IsTurn(call)) return __real_writev(fd, parts, count);
    const iovec half{parts->iov_base, (parts->iov_len + 1) / 2};
    return errno ? -1 : __real_writev(fd, &half, 1);
}

extern "C" int __wrap_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...) {
    static const size_t call = FailingCallNamed("open");
    va_list more;
    va_start(more, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(more, mode_t) : 0;
    va_end(more);
    return IsTurn(call) ? -1 : __real_open(path, flags, mode);
}

extern "C" int __wrap_openat(int folder, const char* path, int flags, ...);
extern "C" int __wrap_openat(int folder, const char* path, int flags, ...) {
    static const size_t call = FailingCallNamed("openat");
    va_list more;
    va_start(more, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(more, mode_t) : 0;
    va_end(more);
    return IsTurn(call) ? -1 : __real_openat(folder, path, flags, mode);
}

extern "C" long __wrap_syscall(long number, ...);
extern "C" long __wrap_syscall(long number, ...) {
    static const size_t call = FailingCallNamed("syscall");
    va_list more;
    va_start(more, number);
    long arguments[6];
    for (long& argument : arguments) argument = va_arg(more, long);  // the kernel reads no more than the call has
    va_end(more);
    if (IsTurn(call)) return -1;
    return __real_syscall(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
