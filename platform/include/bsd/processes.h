// The system's list of processes, and what it tells of one.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <sys/types.h>
#include <vector>

struct kinfo_proc {
    pid_t p_pid;
    char p_comm[17];  // the program's name, at most 16 characters
};

// All processes but the kernel's own and those that have ended, in an array from malloc, which the caller frees. How
// many; 0, and no list, when there is no memory or the system shows none. Processes that come and go meanwhile may be
// in it or not. Any thread.
size_t copy_process_list(kinfo_proc** list);

// The process that holds a flock() lock on the file; 0 when none does or it can't be told, as for one in another
// container. Any thread.
pid_t flock_holder(const char* path);

// When a process was started, in seconds since 1970-01-01 00:00:00 UTC by today's clock; 0 when there is none. Any
// thread.
time_t process_start_time(pid_t pid);

// The variables, "NAME=value", that a process of this user was started with; none when they can't be read. Any thread.
std::vector<std::string> process_environment(pid_t pid);
