// How commands are written and started.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

struct LSpawnedDescriptor {
    int ours;
    int theirs;
};

// Starts the command in the shell with default signals, the environment changed by `variables` (as in
// RunCommandLineProcess) and the descriptors given as theirs. 0 or an errno. Whoever starts it waits for it.
int LSpawnShell(const char* command, const char* const* variables, std::span<const LSpawnedDescriptor> descriptors,
                pid_t& pid);

// The text between double quotes, what the shell knows there being escaped: one word of a command, whatever it holds.
std::string LQuotedForShell(std::string_view text);
