// The program of the applications that tests launch. It tells what it was started with through the pipe "report" beside
// its bundle, one "name: value" per line, and then waits to be killed. What a file of /proc says comes as one line.
#include <csignal>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string Link(const std::string& path) {
    char target[4096];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? "" : std::string(target, static_cast<size_t>(length));
}

std::string OpenDescriptors() {
    std::string found;
    DIR* folder = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(folder))
        if (entry->d_name[0] != '.' && std::stoi(entry->d_name) != dirfd(folder))
            found += std::string(" ") + entry->d_name;
    closedir(folder);
    return found;
}

std::string OneLine(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), {});
    for (char& c : text)
        if (c == '\n' || c == '\0') c = '|';
    return text;
}

}  // namespace

int main(int argc, char**) {
    const std::string descriptors = OpenDescriptors();
    const std::string self = Link("/proc/self/exe");
    const std::string bundle = self.substr(0, self.find("/Contents/"));
    std::string report =
        "pid: " + std::to_string(getpid()) + "\nsession: " + std::to_string(getsid(0)) +
        "\narguments: " + std::to_string(argc) + "\nfolder: " + Link("/proc/self/cwd") +
        "\ninput: " + Link("/proc/self/fd/0") + "\ndescriptors:" + descriptors +
        "\ngroup: " + std::to_string(getpgrp()) + "\npriority: " + std::to_string(getpriority(PRIO_PROCESS, 0)) +
        "\nscheduler: " + std::to_string(sched_getscheduler(0)) + "\nmask of files: " + std::to_string(umask(0)) + "\n";
    for (const char* file : {"environ", "limits", "oom_score_adj", "timerslack_ns"})
        report += std::string(file) + ": " + OneLine(std::string("/proc/self/") + file) + "\n";
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("Sig") || line.starts_with("ShdPnd") || line.starts_with("NoNewPrivs"))
            report += line + "\n";
    std::ofstream(bundle.substr(0, bundle.rfind('/')) + "/report") << report << std::flush;
    for (;;) pause();
}
