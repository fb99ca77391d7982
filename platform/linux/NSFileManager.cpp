#include <Foundation/NSFileManager.h>

#include <sys/stat.h>

NSFileManager& NSFileManager::defaultManager() {
    static NSFileManager& manager = *new NSFileManager;
    return manager;
}

bool NSFileManager::fileExistsAtPath(const NSString& path) const {
    struct stat info;
    return path && ::stat(path.UTF8String(), &info) == 0;
}
