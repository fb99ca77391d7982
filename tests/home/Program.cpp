#include "home/Program.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int timeoutMs = 15'000;

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
    outputPipe = ends[0];
    std::vector<std::string> words = arguments;
    std::vector<std::string> variables;
    for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
    const int error =
        posix_spawn(&pid, words[0].c_str(), &actions, nullptr, Pointers(words).data(), Pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) throw std::system_error(error, std::generic_category(), words[0]);
}

Program::~Program() {
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    close(outputPipe);
}

bool Program::ReadMore(int waitMs) {
    pollfd readable{outputPipe, POLLIN, 0};
    if (poll(&readable, 1, waitMs) <= 0) return false;
    char bytes[4096];
    const ssize_t count = read(outputPipe, bytes, sizeof bytes);
    if (count <= 0) return false;
    output.append(bytes, static_cast<size_t>(count));
    return true;
}

bool Program::AwaitOutput(const std::string& text, size_t times) {
    const int64_t deadline = NowMs() + timeoutMs;
    while (CountOf(output, text) < times) {
        const int64_t left = deadline - NowMs();
        if (left <= 0 || !ReadMore(static_cast<int>(left))) return false;
    }
    return true;
}

bool Program::IsRunning() const {
    siginfo_t ended{};
    return pid > 0 && waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

void Program::Signal(int number) const {
    kill(pid, number);
}

int Program::AwaitEnd() {
    // No event of the standard tells a process's end with a deadline but SIGCHLD, which is the whole program's.
    const int64_t deadline = NowMs() + timeoutMs;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (NowMs() > deadline) return -1;
        if (!ReadMore(1)) poll(nullptr, 0, 1);  // one that nobody reads may never end
    }
    pid = -1;
    while (ReadMore(0)) {
    }
    return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) count++;
    return count;
}
