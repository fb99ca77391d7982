// Reading and writing through signals and the system's limits: what every file operation here is made of. Any thread.
#pragma once

#include <cerrno>
#include <cstddef>
#include <unistd.h>

// One read or write, taken up again only where a signal interrupted it before anything was transferred. Bytes
// transferred; -1 and errno on failure.
inline ssize_t LReadOnce(int fd, void* bytes, size_t count) {
    for (;;) {
        const ssize_t done = ::read(fd, bytes, count);
        if (done >= 0 || errno != EINTR) return done;
    }
}
inline ssize_t LWriteOnce(int fd, const void* bytes, size_t count) {
    for (;;) {
        const ssize_t done = ::write(fd, bytes, count);
        if (done >= 0 || errno != EINTR) return done;
    }
}

// The same until all is done, an error, or the end of the file; one call transfers 2 GiB at most, and less into a disk
// that fills up. Bytes transferred.
inline size_t LReadAll(int fd, void* bytes, size_t count) {
    size_t done = 0;
    while (done < count) {
        const ssize_t more = LReadOnce(fd, static_cast<char*>(bytes) + done, count - done);
        if (more <= 0) break;
        done += static_cast<size_t>(more);
    }
    return done;
}
inline size_t LWriteAll(int fd, const void* bytes, size_t count) {
    size_t done = 0;
    while (done < count) {
        const ssize_t more = LWriteOnce(fd, static_cast<const char*>(bytes) + done, count - done);
        if (more <= 0) break;
        done += static_cast<size_t>(more);
    }
    return done;
}
