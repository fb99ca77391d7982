// What the platform keeps about a file beside POSIX: its flags and when it was made. Any thread.
#pragma once

#include <ctime>

// Takes off all flags that keep a regular file from being changed or deleted (immutable, append-only); `flags` must be
// 0. -1 and errno when that can't be done (it needs a privilege), and for everything that is no regular file: links
// aren't followed, pipes not opened.
int chflags(const char* path, unsigned long flags);

// When the file was made, links followed; the time of its last change of state where the file system doesn't keep it. 0
// when the file can't be looked at. A copy is as old as itself, whatever modification time it carries.
time_t birth_time_of(const char* path);
