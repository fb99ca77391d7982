#include "ProcessList.h"

#include "Descriptor.h"

#include <bsd/processes.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <vector>

namespace platform {

std::optional<ProcessStat> ParseProcessStat(std::string_view line) {
    constexpr uint32_t kKernelThread = 0x00200000;
    constexpr int kFieldsBeforeFlags = 6;
    const size_t open = line.find('('), close = line.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
    std::string_view rest = line.substr(close + 1);
    if (rest.size() < 2 || rest[0] != ' ') return std::nullopt;
    const char state = rest[1];
    for (int i = 0; i < kFieldsBeforeFlags; i++) {
        const size_t space = rest.find(' ', 1);
        if (space == std::string_view::npos) return std::nullopt;
        rest.remove_prefix(space);
    }
    uint32_t flags = 0;
    rest.remove_prefix(1);
    if (std::from_chars(rest.data(), rest.data() + rest.size(), flags).ec != std::errc()) return std::nullopt;
    const bool hasEnded = state == 'Z' || state == 'X';
    return ProcessStat{line.substr(open + 1, close - open - 1), !hasEnded && !(flags & kKernelThread)};
}

namespace {

constexpr size_t kKernelName = 15;  // longer ones are cut by the kernel

std::string FirstOf(const std::string& path, size_t most) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string bytes(most, '\0');
    const ssize_t count = file ? ::read(file.Get(), bytes.data(), most) : -1;
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

std::string FileNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// A name that the kernel may have cut, by the program's file or what it was started as.
std::string WholeName(const std::string& folder, std::string_view name) {
    if (name.size() < kKernelName) return std::string(name);
    char target[4'096];
    const ssize_t length = ::readlink((folder + "/exe").c_str(), target, sizeof target);
    const std::string program = FileNameOf(std::string(target, length > 0 ? static_cast<size_t>(length) : 0));
    const std::string arguments = FirstOf(folder + "/cmdline", sizeof target);
    const std::string started = FileNameOf(arguments.substr(0, arguments.find('\0')));
    for (const std::string& candidate : {program, started})
        if (candidate.starts_with(name)) return candidate;
    return std::string(name);
}

bool Look(const char* number, kinfo_proc& process) {
    const std::string folder = std::string("/proc/") + number;
    const std::string line = FirstOf(folder + "/stat", 1'024);
    const std::optional<ProcessStat> stat = ParseProcessStat(line);
    if (!stat || !stat->isProgram) return false;
    process.p_pid = std::atoi(number);
    const std::string name = WholeName(folder, stat->name);
    const size_t length = std::min(name.size(), sizeof process.p_comm - 1);
    std::memcpy(process.p_comm, name.data(), length);
    process.p_comm[length] = '\0';
    return true;
}

}  // namespace
}  // namespace platform

size_t copy_process_list(kinfo_proc** list) {
    *list = nullptr;
    DIR* const folder = ::opendir("/proc");
    if (!folder) return 0;
    std::vector<kinfo_proc> processes;
    while (const dirent* entry = ::readdir(folder)) {
        kinfo_proc process{};
        if (entry->d_name[0] >= '1' && entry->d_name[0] <= '9' && platform::Look(entry->d_name, process))
            processes.push_back(process);
    }
    ::closedir(folder);
    if (processes.empty()) return 0;
    *list = static_cast<kinfo_proc*>(std::malloc(processes.size() * sizeof(kinfo_proc)));
    if (!*list) return 0;
    std::copy(processes.begin(), processes.end(), *list);
    return processes.size();
}
