#include <Foundation/NSFileManager.h>

#include <cerrno>
#include <sys/stat.h>

NSFileManager& NSFileManager::defaultManager() {
    static NSFileManager& manager = *new NSFileManager;
    return manager;
}

bool NSFileManager::fileExistsAtPath(const NSString& path) const {
    struct stat info;
    if (!path) return false;
    if (::stat(path.UTF8String(), &info) == 0) return true;
    return errno != ENOENT && errno != ENOTDIR && errno != ELOOP && errno != ENAMETOOLONG;
}
