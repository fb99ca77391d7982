#include "system/LCommandLineProcess.h"

#include "system/LShell.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

std::string_view NameOf(const char* variable) {
    return std::string_view(variable).substr(0, std::string_view(variable).find('=') + 1);
}

std::vector<const char*> EnvironmentWith(const char* const* variables) {
    std::vector<const char*> result;
    const auto isGiven = [&](const char* variable) {
        for (const char* const* given = variables; *given; given++)
            if (std::string_view(variable).starts_with(NameOf(*given))) return true;
        return false;
    };
    for (char** variable = environ; *variable; variable++)
        if (!isGiven(*variable)) result.push_back(*variable);
    for (const char* const* given = variables; *given; given++)
        if (NameOf(*given) != *given) result.push_back(*given);
    result.push_back(nullptr);
    return result;
}

}  // namespace

int LSpawnShell(const char* command, const char* const* variables, std::span<const LSpawnedDescriptor> descriptors,
                pid_t& pid) {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    if (const int error = ::posix_spawnattr_init(&attributes)) return error;
    if (const int error = ::posix_spawn_file_actions_init(&actions)) return error;
    sigset_t none, all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    for (const LSpawnedDescriptor& one : descriptors)
        ::posix_spawn_file_actions_adddup2(&actions, one.ours, one.theirs);
    const char* const arguments[] = {"sh", "-c", "--", command, nullptr};
    const std::vector<const char*> environment = EnvironmentWith(variables);
    const int error = ::posix_spawn(&pid, "/bin/sh", &actions, &attributes, const_cast<char* const*>(arguments),
                                    const_cast<char* const*>(environment.data()));
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
    return error;
}

std::string LQuotedForShell(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c && std::strchr("\\\"$`", c)) quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

bool RunCommandLineProcess(const char* command) {
    const char* const none = nullptr;
    return RunCommandLineProcess(command, &none);
}

bool RunCommandLineProcess(const char* command, const char* const* variables) {
    pid_t pid = 0;
    if (!command || LSpawnShell(command, variables, {}, pid) != 0) return false;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
