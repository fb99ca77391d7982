#include "Descriptor.h"

#include <bsd/fileflags.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

int chflags(const char* path, unsigned long flags) {
    if (flags != 0) {
        errno = EINVAL;
        return -1;
    }
    const platform::Descriptor file(::open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.Get(), &status) != 0) return -1;
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return -1;
    }
    int bits = 0;
    if (::ioctl(file.Get(), FS_IOC_GETFLAGS, &bits) != 0) return -1;
    const int changed = bits & ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
    return changed == bits ? 0 : ::ioctl(file.Get(), FS_IOC_SETFLAGS, &changed);
}

unsigned long file_flags_of(const char* path) {
    struct statx info {};
    if (!path || ::statx(AT_FDCWD, path, 0, 0, &info) != 0) return 0;
    return (info.stx_attributes & STATX_ATTR_IMMUTABLE) ? SF_IMMUTABLE : 0;
}

int set_extended_attribute(const char* path, const char* name, const void* value, size_t size) {
    const std::string userName = std::string("user.") + name;
    return ::setxattr(path ? path : "", userName.c_str(), value, size, 0);
}

time_t birth_time_of(const char* path) {
    struct statx info {};
    if (!path || ::statx(AT_FDCWD, path, 0, STATX_BTIME | STATX_CTIME, &info) != 0) return 0;
    return (info.stx_mask & STATX_BTIME) ? info.stx_btime.tv_sec : info.stx_ctime.tv_sec;
}
