// How this folder starts commands.
#pragma once

#include <span>
#include <sys/types.h>

struct LSpawnedDescriptor {
    int ours;
    int theirs;
};

// Starts the command in the shell with default signals, the environment changed by `variables` (as in
// RunCommandLineProcess) and the descriptors given as theirs. 0 or an errno. Whoever starts it waits for it.
int LSpawnShell(const char* command, const char* const* variables, std::span<const LSpawnedDescriptor> descriptors,
                pid_t& pid);
