#include "files/LLockFile.h"

#include "files/LFile.h"
#include "files/LFileIdentity.h"
#include "files/LFilePath.h"

#include <bsd/exlock.h>
#include <bsd/fileflags.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>

namespace {

constexpr const char* kLockExtension = ".lck";

void Sleep(uint64_t milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

}  // namespace

bool LLockFile::Lock(const char* path) {
    Release();
    LFile::_ApplyNewFileExtension(filePath, path, kLockExtension);
    // One whose path was cut would be another file's.
    if (std::strlen(path ? path : "") >= sizeof filePath || tstrcmpend(filePath, kLockExtension) != 0) return true;
    file.Reset(::open_exlock(filePath, O_RDWR | O_NONBLOCK | O_CREAT | O_TRUNC | O_NOFOLLOW, 0777));
    return file || errno != EAGAIN;
}

// First the name, then the lock: the next holder must not lock a file that is about to go. A name that leads elsewhere
// by now isn't ours to delete.
void LLockFile::Release() {
    struct stat held {
    }, there{};
    if (file && ::fstat(file.Get(), &held) == 0 && ::lstat(filePath, &there) == 0 && LIsSameFile(held, there))
        ::unlink(filePath);
    file.Reset();
}

void flocktimed(int fd, int operation, unsigned int timeoutMs) {
    uint64_t wait = timeoutMs / 32 + 1;
    do {
        if (::flock(fd, operation) == 0 || errno != EWOULDBLOCK) return;
        Sleep(wait);
        wait *= 2;
    } while (wait < timeoutMs);
}

bool LFile::TestFileShareWriteBlocked(const char* path) {
    const LDescriptor file(path ? ::open_exlock(path, O_RDONLY | O_NONBLOCK, 0) : -1);
    return path && !file && errno == EAGAIN;
}

bool LFile::TestFileShareReadBlocked(const char* path) {
    return TestFileShareWriteBlocked(path);
}

bool LFile::TestFileLocked(const char* path) {
    return (::file_flags_of(path) & (UF_IMMUTABLE | SF_IMMUTABLE)) != 0;
}

bool LFile::IsErrorSharingViolation() {
    return errno == EACCES || errno == EAGAIN;
}

bool LFile::IsErrorAlreadyExists() {
    return errno == EEXIST;
}

bool LFile::IsErrorPermissionDenied() {
    return errno == EACCES;
}

bool LFile::IsErrorFileNotFound() {
    return errno == ENOENT;
}
