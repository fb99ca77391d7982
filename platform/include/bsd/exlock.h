// Opening a file under an exclusive lock, in one step for the caller.
#pragma once

#include <sys/types.h>

// open() with the platform's flag O_EXLOCK: gives a close-on-exec descriptor whose file is locked against every other
// one (flock), or -1 and errno; EAGAIN when another one holds the lock, O_NONBLOCK or not. O_TRUNC empties the file
// once it is locked, so that nobody's is emptied under his lock; and a file that was deleted or replaced between
// opening and locking is let go, so that two never hold locks of one path. Any thread; a second opening in this process
// counts as another one.
int open_exlock(const char* path, int flags, mode_t mode);
