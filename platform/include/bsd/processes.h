// The system's list of processes.
#pragma once

#include <cstddef>
#include <sys/types.h>

struct kinfo_proc {
    pid_t p_pid;
    char p_comm[17];  // the program's name, at most 16 characters
};

// All processes but the kernel's own and those that have ended, in an array from malloc, which the caller frees. How
// many; 0, and no list, when there is no memory or the system shows none. Processes that come and go meanwhile may be
// in it or not. Any thread.
size_t copy_process_list(kinfo_proc** list);
