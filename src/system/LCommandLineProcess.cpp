#include "system/LCommandLineProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int Spawn(const char* command, pid_t& pid) {
    posix_spawnattr_t attributes;
    if (const int error = ::posix_spawnattr_init(&attributes)) return error;
    sigset_t none, all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const char* const arguments[] = {"sh", "-c", "--", command, nullptr};
    const int error =
        ::posix_spawn(&pid, "/bin/sh", nullptr, &attributes, const_cast<char* const*>(arguments), environ);
    ::posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace

bool RunCommandLineProcess(const char* command) {
    pid_t pid = 0;
    if (!command || Spawn(command, pid) != 0) return false;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
