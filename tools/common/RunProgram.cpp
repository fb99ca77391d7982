#include "RunProgram.h"

#include <bsd/LDescriptor.h>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tools {

namespace {

// False: `line` wants no more.
bool ReadLines(int descriptor, const std::function<bool(const std::string&)>& line) {
    FILE* const stream = fdopen(descriptor, "r");
    if (!stream) return true;
    char* text = nullptr;
    size_t room = 0;
    bool isWanted = true;
    while (isWanted) {
        ssize_t length = getline(&text, &room, stream);
        if (length <= 0) break;
        if (text[length - 1] == '\n') length--;
        isWanted = line(std::string(text, static_cast<size_t>(length)));
    }
    free(text);
    fclose(stream);
    return isWanted;
}

}  // namespace

int RunProgram(const std::vector<std::string>& words, const std::function<bool(const std::string&)>& line) {
    int ends[2] = {-1, -1};
    if (line && pipe2(ends, O_CLOEXEC) != 0) return -1;
    LDescriptor reading(ends[0]), writing(ends[1]);

    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (line)
        posix_spawn_file_actions_adddup2(&actions, writing.Get(), STDOUT_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t child = -1;
    const int error = posix_spawnp(&child, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) return -1;

    writing.Close();
    if (line && !ReadLines(reading.Release(), line)) kill(child, SIGTERM);
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tools
