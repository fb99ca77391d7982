// LLockFile: a lock between processes, as a file that its holder keeps open, locked and deletes when done. It belongs
// to another file, whose name it has with the extension ".lck". Freed by the system when its holder dies. One thread.
//
// flocktimed: a lock of an open file with a bounded wait.
#pragma once

#include "text/LCopyBounded.h"

#include <bsd/LDescriptor.h>

class LLockFile {
public:
    LLockFile() = default;
    ~LLockFile() { Release(); }
    LLockFile(const LLockFile&) = delete;
    LLockFile& operator=(const LLockFile&) = delete;

    // Takes the lock that belongs to `path`, after giving up the one that is held. False only when another holder has
    // it; a lock file that can't be made blocks nobody (true, and nothing is held).
    bool Lock(const char* path);
    void Release();
    bool IsHeld() const { return static_cast<bool>(file); }

private:
    LDescriptor file;
    char filePath[LTextBufferSize] = {};
};

// flock with LOCK_NB in `operation`, tried again after waits that double from timeoutMs / 32 + 1 milliseconds on, as
// long as they are below timeoutMs (1,000 ms: five times in 992 ms). Doesn't say whether it got the lock: readers and
// writers of whole files go on without one that can't be had. A wait runs on after an interruption by a signal.
void flocktimed(int fd, int operation, unsigned int timeoutMs);

// The waits of the library's own readers (LOCK_SH) and writers (LOCK_EX).
inline constexpr unsigned int LReadLockMs = 1'000;
inline constexpr unsigned int LWriteLockMs = 500;
