#include "FileCalls.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace platform {

FileCalls& FileCalls::System() {
    static FileCalls& calls = *new FileCalls;
    return calls;
}

int FileCalls::Open(const char* path, int flags, mode_t mode) {
    return ::open(path, flags | O_CLOEXEC, mode);
}

int FileCalls::Close(int descriptor) {
    return ::close(descriptor);
}

int FileCalls::Stat(int descriptor, struct stat& info) {
    return ::fstat(descriptor, &info);
}

ssize_t FileCalls::Read(int descriptor, void* bytes, size_t count) {
    return ::read(descriptor, bytes, count);
}

ssize_t FileCalls::Write(int descriptor, const iovec* parts, int count) {
    return ::writev(descriptor, parts, count);
}

int FileCalls::Sync(int descriptor) {
    return ::fsync(descriptor);
}

int FileCalls::Rename(const char* from, const char* to) {
    return ::rename(from, to);
}

int FileCalls::RenameWithoutReplacing(const char* from, const char* to) {
    return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}

int FileCalls::Unlink(const char* path) {
    return ::unlink(path);
}

int FileCalls::MakeFolder(const char* path, mode_t mode) {
    return ::mkdir(path, mode);
}

}  // namespace platform
