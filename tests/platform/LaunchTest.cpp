#include "ChildProcess.h"
#include "NSRunningApplication.h"
#include "support/ProbeApplication.h"

#include <AppKit/AppKit.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// Applications are found among all of the user's processes: those of another run of these tests are others.
const std::string kIdentifier = "com.example.probe" + std::to_string(::getpid());

bool LaunchBundle(const std::string& path) {
    return NSWorkspace::sharedWorkspace().launchApplication(NSString(path));
}

std::vector<NSRunningApplication> Running(const std::string& identifier = kIdentifier) {
    return NSRunningApplication::runningApplicationsWithBundleIdentifier(NSString(identifier.c_str()));
}

// Whether no process is left that this one has started, ended or not.
bool HasNoChild() {
    siginfo_t info;
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) < 0 && errno == ECHILD;
}

}  // namespace

// Whatever state the launching thread is in, the application starts with a clean one, and otherwise as any program does
// that this process starts.
TEST(Launch, StartsClean) {
    ProbeApplication probe(kIdentifier);
    std::string program = probe.Program();
    char* const arguments[] = {program.data(), nullptr};
    pid_t plain = 0;
    ASSERT_EQ(::posix_spawn(&plain, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    platform::ChildProcess::Watch(plain);
    auto expected = probe.Report();

    const int stray = ::open("/dev/null", O_RDONLY);  // a library's, not close-on-exec
    struct sigaction ignore {
    }, before{};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &before);
    sigset_t all, mask;
    sigfillset(&all);
    std::atomic<bool> result{false};
    ::pthread_sigmask(SIG_SETMASK, &all, &mask);
    result = LaunchBundle(probe.Bundle());
    ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    ::sigaction(SIGPIPE, &before, nullptr);
    ::close(stray);
    ASSERT_TRUE(result);

    const auto report = probe.Report();
    EXPECT_EQ(report.at("session"), report.at("pid"));
    EXPECT_EQ(report.at("group"), report.at("pid"));
    EXPECT_EQ(report.at("arguments"), "1");
    EXPECT_EQ(report.at("folder"), "/");
    EXPECT_EQ(report.at("input"), "/dev/null");
    EXPECT_EQ(std::string(report.at("descriptors")).find_first_not_of("0 12"), std::string::npos);
    for (const char* name : {"SigPnd", "ShdPnd", "SigBlk", "SigIgn", "SigCgt"})
        EXPECT_EQ(report.at(name), std::string(16, '0')) << name;
    for (const char* name : {"environ", "limits", "oom_score_adj", "timerslack_ns", "priority", "scheduler",
                             "mask of files", "NoNewPrivs"})
        EXPECT_EQ(report.at(name), expected[name]) << name;
}

TEST(Launch, IsReapedAndCanBeLaunchedAgain) {
    ProbeApplication probe(kIdentifier, "", "MacOS");
    ASSERT_TRUE(LaunchBundle(probe.Bundle()));
    const pid_t first = std::stoi(probe.Report()["pid"]);
    EXPECT_TRUE(LaunchBundle(probe.Bundle() + "/"));  // it runs: none is started
    probe.End(first);
    ASSERT_TRUE(LaunchBundle(probe.Bundle()));
    EXPECT_NE(std::stoi(probe.Report()["pid"]), first);
}

TEST(Launch, ManyAtOnceStartOne) {
    ProbeApplication probe(kIdentifier);
    std::vector<std::thread> threads;
    std::atomic<int> done{0};
    for (int i = 0; i < 16; i++) threads.emplace_back([&] { done += LaunchBundle(probe.Bundle()); });
    probe.Report();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(done, 16);
    EXPECT_EQ(Running().size(), 1u);
}

TEST(Launch, FailsForWhatIsNoApplication) {
    ProbeApplication probe(kIdentifier);
    EXPECT_FALSE(LaunchBundle(probe.Folder().Join("none.app")));
    EXPECT_FALSE(NSWorkspace::sharedWorkspace().launchApplication(NSString()));
    for (const char* executable : {"../Linux/probe", "/bin/true", "", "missing", "."}) {
        probe.Folder().Write("Probe.app/Contents/Info.plist",
                             "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>" +
                                 std::string(executable) + "</string></dict></plist>");
        EXPECT_FALSE(LaunchBundle(probe.Bundle())) << executable;
    }
    EXPECT_TRUE(HasNoChild());
}

// What the caller sees of programs that can't run, or don't for long. None of them keeps another launch waiting, and
// each may be launched again.
TEST(Launch, TellsWhetherTheProgramBegan) {
    const struct {
        const char* what;
        std::string program;
        mode_t mode;
        bool begins;
    } rows[] = {
        {"not executable", "#!/bin/sh\n", 0644, false},
        {"no known format",
         "\x7F"
         "ELF",
         0755, false},
        {"its interpreter is missing", "#!/no/such/interpreter\n", 0755, false},
        {"ends at once", "#!/bin/true\n", 0755, true},
        {"fails at once", "#!/bin/false\n", 0755, true},
        {"dies at once", "#!/bin/sh\nkill -KILL $$\n", 0755, true},
        {"hangs", "#!/bin/sh\nkill -STOP $$\n", 0755, true},
    };
    for (const auto& row : rows) {
        ProbeApplication probe(kIdentifier), other(kIdentifier);
        std::filesystem::remove(probe.Program());
        probe.Folder().Write("Probe.app/Contents/Linux/probe", row.program);
        ::chmod(probe.Program().c_str(), row.mode);
        for (int times = 0; times < 2; times++) EXPECT_EQ(LaunchBundle(probe.Bundle()), row.begins) << row.what;
        EXPECT_TRUE(LaunchBundle(other.Bundle())) << row.what;
        other.End(std::stoi(other.Report()["pid"]));
        for (const auto& running : Running()) ::kill(running.processIdentifier(), SIGKILL);
        while (!HasNoChild()) std::this_thread::yield();
    }
}

// An update that is just being written: the launch waits for it, and says so.
TEST(Launch, WaitsForAProgramThatIsBeingWritten) {
    ProbeApplication probe(kIdentifier);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const int standardError = ::dup(STDERR_FILENO);
    const int writing = ::open(probe.Program().c_str(), O_WRONLY | O_CLOEXEC);
    ::dup2(ends[1], STDERR_FILENO);
    std::thread update([&] {
        char line[200];
        EXPECT_GT(::read(ends[0], line, sizeof line), 0);
        ::close(writing);
    });
    const bool launched = LaunchBundle(probe.Bundle());
    ::dup2(standardError, STDERR_FILENO);
    update.join();
    for (const int descriptor : {ends[0], ends[1], standardError}) ::close(descriptor);
    ASSERT_TRUE(launched);
    probe.Report();
}

TEST(RunningApplications, FindsTheProgramOfTheBundleOnly) {
    ProbeApplication probe(kIdentifier, "<key>CFBundleName</key><string>Name</string>");
    EXPECT_TRUE(Running().empty());
    ASSERT_TRUE(LaunchBundle(probe.Bundle()));
    const pid_t pid = std::stoi(probe.Report()["pid"]);
    auto running = Running();
    ASSERT_EQ(running.size(), 1u);
    EXPECT_EQ(running[0].bundleURL().path().View(), probe.Bundle());
    EXPECT_EQ(running[0].localizedName().View(), "Name");
    EXPECT_EQ(running[0].processIdentifier(), pid);
    EXPECT_TRUE(Running("com.example.probe").empty());

    // The file behind it was replaced by an update: it still runs from this bundle.
    std::filesystem::remove(probe.Program());
    EXPECT_EQ(Running().size(), 1u);
    // Another program of the bundle is not the application.
    probe.Folder().Write("Probe.app/Contents/Info.plist",
                         "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + kIdentifier +
                             "</string><key>CFBundleExecutable</key><string>other</string></dict></plist>");
    EXPECT_TRUE(Running().empty());
    probe.End(pid);
}

TEST(RunningApplications, NameFallsBack) {
    ProbeApplication named(kIdentifier, "<key>CFBundleName</key><string>Name</string>"
                                        "<key>CFBundleDisplayName</key><string>Display</string>");
    ProbeApplication bare(kIdentifier);
    ASSERT_TRUE(LaunchBundle(named.Bundle()) && LaunchBundle(bare.Bundle()));
    named.Report();
    bare.Report();
    std::vector<std::string> names;
    for (const auto& application : Running()) names.emplace_back(application.localizedName().View());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"Display", "Probe"}));
}

// A script runs as its interpreter; only the interpreter that its first line names counts.
TEST(RunningApplications, FindsScripts) {
    const TempFolder folder;
    const std::string interpreter = std::filesystem::canonical("/bin/sh");
    const struct {
        const char* what;
        std::string firstLine, exe;
        std::vector<std::string> arguments;
        bool runs;
    } rows[] = {
        {"plain", "#!/bin/sh", interpreter, {"/bin/sh", "SCRIPT"}, true},
        {"with an argument", "#! /bin/sh -e", interpreter, {"/bin/sh", "-e", "SCRIPT", "own"}, true},
        {"by env", "#!/usr/bin/env python3", "/usr/bin/python3.11", {"python3", "SCRIPT"}, true},
        {"by env -S", "#!/usr/bin/env -S python3 -u", "/usr/bin/python3.11", {"python3", "-u", "SCRIPT"}, true},
        {"shown by an editor", "#!/bin/sh", "/usr/bin/vim", {"vim", "SCRIPT"}, false},
        {"as an argument's argument", "#!/bin/sh", interpreter, {"/bin/sh", "/other", "x", "SCRIPT"}, false},
        {"no script", "ELF", interpreter, {"/bin/sh", "SCRIPT"}, false},
        {"outside a program folder", "#!/bin/sh", interpreter, {"/bin/sh", "OTHER"}, false},
    };
    int number = 0;
    for (const auto& row : rows) {
        const std::string name = "process" + std::to_string(number++);
        const std::string script = folder.Write("S.app/Contents/Linux/run", row.firstLine + "\necho\n");
        const std::string other = folder.Write("S.app/run", row.firstLine + "\necho\n");
        std::string arguments;
        for (std::string argument : row.arguments)
            arguments += (argument == "SCRIPT" ? script : argument == "OTHER" ? other : argument) + '\0';
        folder.Write(name + "/cmdline", arguments);
        std::filesystem::create_symlink(row.exe, folder.Join(name + "/exe"));
        EXPECT_EQ(platform::ProgramOfProcess(folder.Join(name)), row.runs ? script : row.exe) << row.what;
    }
    folder.MakeFolder("zombie");
    EXPECT_FALSE(platform::ProgramOfProcess(folder.Join("zombie")));
}
