#include "NSRunningApplication.h"
#include "support/ProbeApplication.h"

#include <AppKit/AppKit.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr char kIdentifier[] = "com.example.probe";

bool LaunchBundle(const std::string& path) {
    return NSWorkspace::sharedWorkspace().launchApplication(NSString(path));
}

std::vector<NSRunningApplication> Running(const char* identifier = kIdentifier) {
    return NSRunningApplication::runningApplicationsWithBundleIdentifier(NSString(identifier));
}

}  // namespace

// Whatever state the launching thread is in, the application starts with a clean one.
TEST(Launch, StartsClean) {
    ProbeApplication probe(kIdentifier);
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
    EXPECT_EQ(report.at("arguments"), "1");
    EXPECT_EQ(report.at("folder"), "/");
    EXPECT_EQ(report.at("input"), "/dev/null");
    EXPECT_EQ(std::string(report.at("descriptors")).find_first_not_of("0 12"), std::string::npos);
    EXPECT_EQ(report.at("SigBlk"), std::string(16, '0'));
    // 32 and 33 are the C library's own, which it ignores on the way and handles itself when it needs them.
    EXPECT_EQ(std::stoul(report.at("SigIgn"), nullptr, 16) & ~(3ul << 31), 0u);
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
    const std::string info = "Probe.app/Contents/Info.plist";
    EXPECT_FALSE(LaunchBundle(probe.Folder().Join("none.app")));
    EXPECT_FALSE(NSWorkspace::sharedWorkspace().launchApplication(NSString()));
    for (const char* executable : {"../Linux/probe", "/bin/true", "", "missing", "."}) {
        probe.Folder().Write(info, "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>" +
                                       std::string(executable) + "</string></dict></plist>");
        EXPECT_FALSE(LaunchBundle(probe.Bundle())) << executable;
    }
    probe.Folder().Write("Probe.app/Contents/Linux/data", "no program");
    probe.Folder().Write(
        info, "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>data</string></dict></plist>");
    EXPECT_FALSE(LaunchBundle(probe.Bundle()));
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
    EXPECT_TRUE(Running("com.example").empty());

    // The file behind it was replaced by an update: it still runs from this bundle.
    std::filesystem::remove(probe.Program());
    EXPECT_EQ(Running().size(), 1u);
    // Another program of the bundle is not the application.
    probe.Folder().Write("Probe.app/Contents/Info.plist",
                         "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>com.example.probe</string>"
                         "<key>CFBundleExecutable</key><string>other</string></dict></plist>");
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
