#include "NSRunningApplication.h"

#include "Descriptor.h"
#include "InfoPlist.h"
#include "MainBundle.h"

#include <bsd/LMutex.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

std::string_view FileName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

// The first bytes of a file; "" when it can't be read.
template <size_t Size>
std::string Begin(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    std::array<char, Size> bytes;
    const ssize_t count = file ? ::read(file.Get(), bytes.data(), bytes.size()) : -1;
    return count > 0 ? std::string(bytes.data(), static_cast<size_t>(count)) : std::string();
}

std::string_view NextWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(" \t"));
    text.remove_prefix(word.size());
    return word;
}

// Whether the first line of a script names the interpreter that runs: `program`, started as `calledAs`.
bool IsInterpreterOf(const std::string& script, const std::string& program, std::string_view calledAs) {
    const std::string begin = Begin<256>(script);
    if (!begin.starts_with("#!")) return false;
    std::string_view line = std::string_view(begin).substr(2, begin.find('\n') - 2);
    const std::string interpreter(NextWord(line));
    if (FileName(interpreter) == "env") {
        std::string_view name = NextWord(line);
        if (name == "-S") name = NextWord(line);
        return FileName(calledAs) == FileName(name);
    }
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(interpreter.c_str(), nullptr), &std::free);
    return resolved && program == resolved.get();
}

struct Seam {
    LMutex mutex;
    RunningApplicationList list L_GUARDED_BY(mutex);
};

Seam& TheSeam() {
    static Seam& seam = *new Seam;
    return seam;
}

std::vector<pid_t> OwnProcesses() {
    std::vector<pid_t> pids;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc"), &::closedir);
    while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        pid_t pid = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (error != std::errc() || end != name.data() + name.size()) continue;
        struct stat info {};
        if (::fstatat(::dirfd(folder.get()), entry->d_name, &info, 0) == 0 && info.st_uid == ::geteuid())
            pids.push_back(pid);
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

// The process as an application with the given identifier, or nothing.
std::optional<NSRunningApplication> ApplicationOfProcess(pid_t pid, std::string_view identifier) {
    const auto program = ProgramOfProcess("/proc/" + std::to_string(pid));
    const auto bundle = program ? BundleOfProgram(*program) : std::nullopt;
    const auto info = bundle ? ReadInfoPlist(*bundle) : std::nullopt;
    if (!info) return std::nullopt;
    const std::string* const bundleId = info->String("CFBundleIdentifier");
    const std::string* const executable = info->String("CFBundleExecutable");
    if (!bundleId || *bundleId != identifier || !executable || *executable != FileName(*program)) return std::nullopt;
    std::string_view name = FileName(*bundle);
    name.remove_suffix(std::string_view(".app").size());
    const std::string* displayName = info->String("CFBundleDisplayName");
    if (!displayName) displayName = info->String("CFBundleName");
    if (displayName) name = *displayName;
    return NSRunningApplication(NSURL::fileURLWithPath(NSString(*bundle)), NSString(name), pid);
}

}  // namespace

std::optional<std::string> ProgramOfProcess(const std::string& processFolder) {
    auto program = ProgramOfLink(processFolder + "/exe");
    if (!program || BundleOfProgram(*program)) return program;
    // The kernel starts an interpreter as: its name, the one argument of the script's first line if there is one, the
    // script, the script's own arguments.
    const std::string arguments = Begin<8192>(processFolder + "/cmdline");
    const std::string_view calledAs = arguments.c_str();
    size_t at = calledAs.size() + 1;
    for (int n = 1; n <= 2 && at < arguments.size(); n++) {
        std::string script = arguments.c_str() + at;
        at += script.size() + 1;
        if (!script.starts_with('/')) {
            const auto folder = ProgramOfLink(processFolder + "/cwd");
            if (folder) script = *folder + "/" + (script.starts_with("./") ? script.substr(2) : script);
        }
        if (BundleOfProgram(script) && IsInterpreterOf(script, *program, calledAs)) return script;
    }
    return program;
}

void SetRunningApplications(RunningApplicationList list) {
    Seam& seam = TheSeam();
    LMutexLock lock(seam.mutex);
    seam.list = std::move(list);
}

}  // namespace platform

NSRunningApplication::NSRunningApplication(NSURL bundle, NSString name, pid_t process)
    : url(std::move(bundle)), displayName(std::move(name)), pid(process) {}

std::vector<NSRunningApplication>
NSRunningApplication::runningApplicationsWithBundleIdentifier(const NSString& identifier) {
    using namespace platform;
    RunningApplicationList list;
    {
        Seam& seam = TheSeam();
        LMutexLock lock(seam.mutex);
        list = seam.list;
    }
    if (list) return list(identifier);
    std::vector<NSRunningApplication> applications;
    if (!identifier) return applications;
    for (const pid_t pid : OwnProcesses())
        if (auto application = ApplicationOfProcess(pid, identifier.View()))
            applications.push_back(std::move(*application));
    return applications;
}
