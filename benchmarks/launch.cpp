// Launching an application beside a bare posix_spawn of the same program, from a small process and from one of 500 MB.
// The program is this one: as the program of a bundle it tells when it has reached main, and ends.
#include "Bench.h"

#include <AppKit/AppKit.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr char kIdentifier[] = "com.example.bench";

struct Arrival {
    uint64_t ns;
    pid_t pid;
};

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

std::string OwnProgram() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

int AsApplication(const std::string& program) {
    const Arrival arrival{bench::NowNs(), getpid()};
    const std::string bundle = program.substr(0, program.find("/Contents/"));
    const int pipe = open((bundle + "/../arrivals").c_str(), O_WRONLY | O_CLOEXEC);
    return write(pipe, &arrival, sizeof arrival) == sizeof arrival ? 0 : 1;
}

struct Application {
    std::string folder = std::filesystem::temp_directory_path() / "bench.XXXXXX";
    std::string bundle, program;
    int arrivals;

    Application() {
        if (!mkdtemp(folder.data())) Die("mkdtemp");
        bundle = folder + "/Bench.app";
        program = bundle + "/Contents/Linux/bench";
        std::filesystem::create_directories(bundle + "/Contents/Linux");
        std::filesystem::copy_file(OwnProgram(), program);
        std::ofstream(bundle + "/Contents/Info.plist")
            << "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" << kIdentifier
            << "</string><key>CFBundleExecutable</key><string>bench</string></dict></plist>";
        const std::string pipe = folder + "/arrivals";
        if (mkfifo(pipe.c_str(), 0600) != 0) Die("mkfifo");
        arrivals = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    }
    ~Application() {
        close(arrivals);
        std::filesystem::remove_all(folder);
    }

    Arrival Next() const {
        Arrival arrival{};
        if (read(arrivals, &arrival, sizeof arrival) != sizeof arrival) Die("read");
        return arrival;
    }
};

// Calls launch() and notes when the program has reached main; end(pid) waits until nothing is left of it.
template <class Launch, class End>
void Measure(bench::Samples& samples, const Application& application, Launch launch, End end) {
    const uint64_t start = bench::NowNs();
    launch();
    const Arrival arrival = application.Next();
    samples.Add(static_cast<double>(arrival.ns - start) / 1e3);
    end(arrival.pid);
}

void Compare(const Application& application, const std::string& name, int times) {
    bench::Samples bare, launched, checked;
    const auto spawn = [&] {
        pid_t pid;
        std::string program = application.program;
        char* const arguments[] = {program.data(), nullptr};
        if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, arguments, environ) != 0) Die("posix_spawn");
    };
    const auto launch = [&] {
        if (!NSWorkspace::sharedWorkspace().launchApplication(NSString(application.bundle))) Die("launchApplication");
    };
    const auto check = [&] {
        if (!NSRunningApplication::runningApplicationsWithBundleIdentifier(NSString(kIdentifier)).empty())
            Die("it runs already");
        launch();
    };
    const auto reap = [](pid_t pid) { waitpid(pid, nullptr, 0); };
    const auto gone = [](pid_t pid) {
        while (kill(pid, 0) == 0) sched_yield();
    };
    for (int i = 0; i < times; i++) {
        Measure(bare, application, spawn, reap);
        Measure(launched, application, launch, gone);
        Measure(checked, application, check, gone);
    }
    bare.Print(name + ".posix_spawn", "us");
    launched.Print(name, "us", name + ".posix_spawn");
    checked.Print(name + ".with_running_check", "us", name + ".posix_spawn");
}

}  // namespace

int main() {
    const std::string program = OwnProgram();
    if (program.find(".app/Contents/") != std::string::npos) return AsApplication(program);
    const Application application;
    Compare(application, "launch", 200);
    const std::vector<char> large(500'000'000, 1);
    bench::Keep(large.size());
    Compare(application, "launch.from_500MB", 100);
}
