#include "Descriptor.h"

#include <bsd/exlock.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

// Whether the path still leads to the open file.
bool IsStillThere(const char* path, int flags, int fd) {
    struct stat opened {
    }, there{};
    const int how = (flags & O_NOFOLLOW) ? AT_SYMLINK_NOFOLLOW : 0;
    return ::fstat(fd, &opened) == 0 && ::fstatat(AT_FDCWD, path, &there, how) == 0 && opened.st_dev == there.st_dev &&
           opened.st_ino == there.st_ino;
}

}  // namespace

int open_exlock(const char* path, int flags, mode_t mode) {
    // Each further round means that somebody released a lock between our two calls.
    for (int round = 0; round < 1'000; round++) {
        platform::Descriptor file(::open(path, (flags & ~O_TRUNC) | O_CLOEXEC, mode));
        if (!file) return -1;
        int locked;
        while ((locked = ::flock(file.Get(), LOCK_EX | LOCK_NB)) != 0 && errno == EINTR) continue;
        if (locked != 0) {
            if (errno == EWOULDBLOCK) errno = EAGAIN;
            return -1;
        }
        if (!IsStillThere(path, flags, file.Get())) continue;
        if ((flags & O_TRUNC) && ::ftruncate(file.Get(), 0) != 0 && errno != EINVAL) return -1;
        return file.Release();
    }
    errno = EAGAIN;
    return -1;
}
