// What the platform keeps about a file beside POSIX: its flags and when it was made. Any thread.
#pragma once

#include <cstddef>
#include <ctime>

// Takes off all flags that keep a regular file from being changed or deleted (immutable, append-only); `flags` must be
// 0. -1 and errno when that can't be done (it needs a privilege), and for everything that is no regular file: links
// aren't followed, pipes not opened.
int chflags(const char* path, unsigned long flags);

// The flags of these that the file has, links followed; 0 when it can't be looked at. What Linux calls immutable is
// the second one.
inline constexpr unsigned long UF_IMMUTABLE = 0x00000002;
inline constexpr unsigned long SF_IMMUTABLE = 0x00020000;
unsigned long file_flags_of(const char* path);

// Gives the file an attribute of the user's own, links followed. 0, or -1 and errno. Linux keeps such names below
// "user.", which is put in front.
int set_extended_attribute(const char* path, const char* name, const void* value, size_t size);

// When the file was made, links followed; the time of its last change of state where the file system doesn't keep it. 0
// when the file can't be looked at. A copy is as old as itself, whatever modification time it carries.
time_t birth_time_of(const char* path);
