// FailingCalls: the system calls that the failing helper counts, and lets one of fail on request: the helper as it is,
// linked with a wrapper around each of these calls. By its environment:
//
//     FAILING_CALL     "<name> <n> <errno> <1: for good>": the n-th call of that name fails, or it and all after it; an
//                      errno of 0 lets a write take half of its bytes
//     FAILING_COUNTS   a file that holds, when the helper is gone, an uint32 for each name: how often it was called
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <vector>

struct FailingCall {
    std::string_view name;
    std::vector<int> errors;  // those that a healthy program meets
};

// Of epoll_ctl only additions: the others cannot fail. Of syscall: a child's descriptor, and waits at the exit gate.
inline const std::array kFailingCalls{
    FailingCall{"accept4", {EMFILE, ENOMEM, ECONNABORTED, EINTR}},
    FailingCall{"bind", {ENOSPC, EACCES}},
    FailingCall{"close", {EIO, EINTR}},
    FailingCall{"connect", {ECONNREFUSED, EINTR}},
    FailingCall{"epoll_create1", {EMFILE, ENOMEM}},
    FailingCall{"epoll_ctl", {ENOMEM, ENOSPC}},
    FailingCall{"epoll_wait", {EINTR}},
    FailingCall{"eventfd", {EMFILE, ENOMEM}},
    FailingCall{"flock", {EINTR, ENOLCK}},
    FailingCall{"fstat", {EIO, ENOMEM}},
    FailingCall{"fstatat", {EIO, ENOMEM}},
    FailingCall{"fsync", {EIO, ENOSPC, EINTR}},
    FailingCall{"getsockopt", {ENOMEM}},
    FailingCall{"listen", {ENOMEM}},
    FailingCall{"mkdir", {ENOSPC, EIO}},
    FailingCall{"open", {EMFILE, EIO, ENOMEM, EINTR}},
    FailingCall{"openat", {EMFILE, ENOMEM, EINTR}},
    FailingCall{"opendir", {EMFILE, ENOMEM}},
    FailingCall{"poll", {EINTR, ENOMEM}},
    FailingCall{"posix_spawn", {EAGAIN, ENOMEM}},
    FailingCall{"pthread_create", {EAGAIN}},
    FailingCall{"read", {EIO, EINTR, ENOMEM}},
    FailingCall{"readdir", {EIO}},
    FailingCall{"readlink", {EIO, ENOMEM}},
    FailingCall{"realpath", {EIO, ENOMEM}},
    FailingCall{"recv", {ECONNRESET, EINTR, ENOMEM}},
    FailingCall{"recvmsg", {ECONNRESET, EINTR, ENOMEM}},
    FailingCall{"rename", {EIO, ENOSPC, ENOMEM}},
    FailingCall{"send", {EPIPE, EINTR, ENOMEM}},
    FailingCall{"sendmsg", {EPIPE, EINTR, ENOMEM}},
    FailingCall{"signalfd", {EMFILE, ENOMEM}},
    FailingCall{"socket", {EMFILE, ENOMEM}},
    FailingCall{"stat", {EIO, ENOMEM}},
    FailingCall{"syscall", {EMFILE, EINTR}},
    FailingCall{"timerfd_create", {EMFILE, ENOMEM}},
    FailingCall{"unlink", {EIO}},
    FailingCall{"unlinkat", {EIO}},
    FailingCall{"waitpid", {EINTR}},
    FailingCall{"writev", {ENOSPC, EIO, EINTR, 0}},
};

inline size_t FailingCallNamed(std::string_view name) {
    size_t index = 0;
    while (index < kFailingCalls.size() && kFailingCalls[index].name != name) index++;
    return index;
}
