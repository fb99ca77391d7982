// FileCalls: the system calls with which files of the layer are kept safe, one virtual call each, so that tests record
// them, fail the n-th one or cut the power between two. Results and errno as the system's. Immortal and stateless: any
// thread.
#pragma once

#include <cerrno>
#include <cstddef>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace platform {

class FileCalls {
public:
    static constexpr int kMostParts = 1024;

    static FileCalls& System();

    virtual ~FileCalls() = default;
    virtual int Open(const char* path, int flags, mode_t mode);
    virtual int Close(int descriptor);
    virtual int Stat(int descriptor, struct stat& info);
    virtual ssize_t Read(int descriptor, void* bytes, size_t count);
    virtual ssize_t Write(int descriptor, const iovec* parts, int count);  // one behind the other; at most kMostParts
    virtual int Sync(int descriptor);
    virtual int Rename(const char* from, const char* to);
    virtual int RenameWithoutReplacing(const char* from, const char* to);  // EEXIST where `to` exists
    virtual int Unlink(const char* path);
    virtual int MakeFolder(const char* path, mode_t mode);
};

// Makes a call again while a signal interrupts it, but not for ever: a file system that answers nothing else has
// failed.
template <class Call>
auto Uninterrupted(Call call) {
    auto result = call();
    for (int tries = 1; result < 0 && errno == EINTR && tries < 100; tries++) result = call();
    return result;
}

// A descriptor of such calls, closed through them.
class FileCallsDescriptor {
public:
    FileCallsDescriptor(FileCalls& fileCalls, int descriptor) : calls(fileCalls), fd(descriptor) {}
    ~FileCallsDescriptor() {
        if (fd >= 0) calls.Close(fd);
    }
    FileCallsDescriptor(const FileCallsDescriptor&) = delete;
    FileCallsDescriptor& operator=(const FileCallsDescriptor&) = delete;

    int Get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

private:
    FileCalls& calls;
    const int fd;
};

}  // namespace platform
