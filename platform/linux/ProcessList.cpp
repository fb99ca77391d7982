#include "ProcessList.h"

#include "Descriptor.h"
#include "MainBundle.h"

#include <bsd/processes.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace platform {

namespace {

// Moves `rest`, which begins with the blank before a field, on by `fields`, and reads the number there.
template <class Number>
bool TakeField(std::string_view& rest, int fields, Number& number) {
    for (int i = 0; i < fields; i++) {
        const size_t space = rest.find(' ', 1);
        if (space == std::string_view::npos) return false;
        rest.remove_prefix(space);
    }
    return std::from_chars(rest.data() + 1, rest.data() + rest.size(), number).ec == std::errc();
}

}  // namespace

std::optional<ProcessStat> ParseProcessStat(std::string_view line) {
    constexpr uint32_t kKernelThread = 0x00200000;
    constexpr int kFieldsToFlags = 6, kFieldsFromFlagsToStart = 13;
    const size_t open = line.find('('), close = line.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
    std::string_view rest = line.substr(close + 1);
    if (rest.size() < 2 || rest[0] != ' ') return std::nullopt;
    const char state = rest[1];
    uint32_t flags = 0;
    uint64_t startTicks = 0;
    if (!TakeField(rest, kFieldsToFlags, flags) || !TakeField(rest, kFieldsFromFlagsToStart, startTicks))
        return std::nullopt;
    const bool hasEnded = state == 'Z' || state == 'X';
    return ProcessStat{line.substr(open + 1, close - open - 1), !hasEnded && !(flags & kKernelThread), startTicks};
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
    const std::string program = FileNameOf(ProgramOfLink(folder + "/exe").value_or(""));
    const std::string arguments = FirstOf(folder + "/cmdline", 4'096);
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

// A line of /proc/locks: "1: FLOCK  ADVISORY  WRITE 1234 08:01:5678 0 EOF". The holder, if it is a lock of this file.
// The device's numbers are left out: some file systems give another one here than stat does.
pid_t HolderOf(const std::string& line, ino_t file) {
    std::istringstream words(line);
    std::string number, kind, sort, access, place;
    pid_t pid = 0;
    words >> number >> kind >> sort >> access >> pid >> place;
    const std::string inode = place.substr(place.rfind(':') + 1);
    return words && kind == "FLOCK" && inode == std::to_string(file) ? pid : 0;
}

}  // namespace
}  // namespace platform

pid_t flock_holder(const char* path) {
    struct stat info {};
    if (::stat(path, &info) != 0) return 0;
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);)
        if (const pid_t pid = platform::HolderOf(line, info.st_ino); pid > 0) return pid;
    return 0;
}

time_t process_start_time(pid_t pid) {
    const std::string line = platform::FirstOf("/proc/" + std::to_string(pid) + "/stat", 1'024);
    const auto stat = platform::ParseProcessStat(line);
    timespec sinceBoot{};
    if (!stat || ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) return 0;
    const auto age = sinceBoot.tv_sec - static_cast<time_t>(stat->startTicks) / ::sysconf(_SC_CLK_TCK);
    return ::time(nullptr) - age;
}

std::vector<std::string> process_environment(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    std::vector<std::string> variables;
    for (std::string one; std::getline(file, one, '\0');) variables.push_back(one);
    return variables;
}

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
