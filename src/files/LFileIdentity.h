// Whether two paths are the same file, or one lies below the other, whatever their texts say: what a copy asks before
// it destroys its own source. Any thread.
#pragma once

#include <sys/stat.h>

inline bool LIsSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether two paths are one entry of one folder. A second hard link to the same file is another entry.
bool LIsSameEntry(const char* a, const char* b);

// Whether `path`, which may not exist yet, is the folder or lies below it, through links too. False where that can't be
// told: in a working folder that may not be searched.
bool LLiesInFolder(const struct stat& folder, const char* path);
