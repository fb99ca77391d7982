#include "ChildProcess.h"
#include "InfoPlist.h"
#include "Passing.h"
#include "UserManager.h"

#include <AppKit/AppKit.h>
#include <bsd/LMutex.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <optional>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

// One bundle, by device and inode: the same one may be named by many paths.
using BundleIdentity = std::pair<dev_t, ino_t>;

struct Launch {
    bool onItsWay = false;
    uint64_t ended = 0;    // how many launches have
    bool outcome = false;  // of the last one
    std::shared_ptr<ChildProcess> child;
};

struct Launches {
    LMutex mutex;
    std::condition_variable changed;
    std::map<BundleIdentity, Launch> byBundle L_GUARDED_BY(mutex);
};

Launches& TheLaunches() {
    static Launches& launches = *new Launches;
    return launches;
}

bool IsRegularFile(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return false;
    errno = ENOENT;
    return S_ISREG(info.st_mode);
}

// Nothing (errno) when there is none, or none to be found now.
std::optional<std::string> ExecutableOfBundle(const std::string& bundle) {
    const auto info = ReadInfoPlist(bundle);
    if (!info) return std::nullopt;
    const std::string* const name = info->String("CFBundleExecutable");
    errno = ENOENT;
    if (!name || name->empty() || name->find('/') != std::string::npos)
        return std::nullopt;  // no way out of the bundle
    for (const char* folder : {"/Contents/Linux/", "/Contents/MacOS/"}) {
        if (std::string path = bundle + folder + *name; IsRegularFile(path)) return path;
        if (IsPassing(errno)) break;
    }
    return std::nullopt;
}

struct SpawnSettings {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;

    SpawnSettings() {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
};

// posix_spawn returns when the child has become the program, or has failed to: glibc lets it run on our memory until
// then, which is also why a large process starts another one as fast as a small one.
int Spawn(const std::string& executable, pid_t& pid) {
    SpawnSettings settings;
    sigset_t none, all;
    sigemptyset(&none);
    std::memset(&all, 0xFF, sizeof all);  // sigfillset spares the C library's own two, which the program would ignore
    posix_spawnattr_setsigmask(&settings.attributes, &none);
    posix_spawnattr_setsigdefault(&settings.attributes, &all);
    posix_spawnattr_setflags(&settings.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addchdir_np(&settings.actions, "/");
    // Ours are close-on-exec; those of libraries and of whoever started us may not be.
    posix_spawn_file_actions_addclosefrom_np(&settings.actions, STDERR_FILENO + 1);
    std::string name = executable;
    char* const arguments[] = {name.data(), nullptr};
    return ::posix_spawn(&pid, executable.c_str(), &settings.actions, &settings.attributes, arguments, environ);
}

std::shared_ptr<ChildProcess> Start(const std::string& bundle) {
    pid_t pid = 0;
    bool isReported = false;
    const auto report = [&](const char* when, int error) {
        fprintf(stderr, "%s cannot be launched%s: %s\n", bundle.c_str(), when, strerror(error));
        errno = error;
        return false;
    };
    const bool isStarted = Persist([&] {
        const auto executable = ExecutableOfBundle(bundle);
        const int error = executable ? Spawn(*executable, pid) : errno;
        if (error != 0 && IsPassing(error) && !std::exchange(isReported, true)) return report(" yet", error);
        errno = error;
        return error == 0;
    });
    if (!isStarted) {
        report("", errno);
        return nullptr;
    }
    auto child = ChildProcess::Watch(pid);
    AskForScope(child, bundle);
    return child;
}

}  // namespace

}  // namespace platform

NSWorkspace& NSWorkspace::sharedWorkspace() {
    static NSWorkspace& workspace = *new NSWorkspace;
    return workspace;
}

// Whoever finds a launch of the bundle on its way waits and shares its outcome. Whoever comes just after it, having
// looked for the running application just before, finds the child that it started: a process that has only begun is an
// application that runs, too.
bool NSWorkspace::launchApplication(const NSString& path) L_NO_THREAD_SAFETY_ANALYSIS {
    using namespace platform;
    struct stat info {};
    if (!path || !Persist([&] { return ::stat(path.UTF8String(), &info) == 0; })) return false;
    Launches& launches = TheLaunches();
    std::unique_lock lock(launches.mutex.Native());
    Launch& launch = launches.byBundle[{info.st_dev, info.st_ino}];  // never removed: references stay valid
    if (launch.onItsWay) {
        const uint64_t ended = launch.ended;
        launches.changed.wait(lock, [&] { return launch.ended != ended; });
        return launch.outcome;
    }
    if (launch.child && launch.child->IsRunning()) return true;
    launch.onItsWay = true;
    lock.unlock();
    std::shared_ptr<ChildProcess> child = Start(path.UTF8String());
    lock.lock();
    launch.outcome = child != nullptr;
    launch.child = std::move(child);
    launch.onItsWay = false;
    launch.ended++;
    launches.changed.notify_all();
    return launch.outcome;
}
