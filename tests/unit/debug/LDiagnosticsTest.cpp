// The diagnostics of whole processes: how they end, and what becomes of their markers.
#include "debug/LDebugSignals.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <bsd/LDescriptor.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

// A probe in a home of its own; the constructor returns when it is ready.
class Probe {
public:
    Probe(const std::string& home, const std::string& end) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) abort();
        LDescriptor output(ends[0]), input(ends[1]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input.Get(), 1);
        const std::string program = std::string(BUILD_FOLDER) + "/tests/diagnostics_probe";
        // The sanitizers leave the faults to the program.
        const std::string leave = "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:detect_leaks=0";
        std::vector<std::string> variables = {"HOME=" + home, "XDG_CACHE_HOME=" + home + "/cache", "LOGNAME=ann/bob",
                                              "ASAN_OPTIONS=" + leave, "TSAN_OPTIONS=" + leave};
        std::vector<char*> environment;
        for (std::string& variable : variables) environment.push_back(variable.data());
        environment.push_back(nullptr);
        std::string argument = end;
        char* arguments[] = {const_cast<char*>(program.c_str()), argument.data(), nullptr};
        if (posix_spawn(&pid, program.c_str(), &actions, nullptr, arguments, environment.data()) != 0) abort();
        posix_spawn_file_actions_destroy(&actions);
        input.Reset();
        char line[6] = {};
        size_t got = 0;
        while (got < sizeof line) {
            const ssize_t more = ::read(output.Get(), line + got, sizeof line - got);
            if (more <= 0) break;
            got += static_cast<size_t>(more);
        }
        EXPECT_EQ(std::string(line, got), "ready\n");
    }
    ~Probe() {
        if (pid > 0) ::kill(pid, SIGKILL), Status();
    }

    void Signal(int number) const { ::kill(pid, number); }

    bool AwaitStop() const {
        int status = 0;
        return ::waitpid(pid, &status, WUNTRACED) == pid && WIFSTOPPED(status);
    }

    // Waits for the end: the exit status, or minus the signal's number.
    int Status() {
        int status = 0;
        ::waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    static fs::path Marker(const std::string& home) { return home + "/cache/_schedulehelper_rl_ann_bob"; }

private:
    pid_t pid = -1;
};

bool IsHeld(const fs::path& marker) {
    const LDescriptor file(::open(marker.c_str(), O_RDONLY | O_CLOEXEC));
    return file && ::flock(file.Get(), LOCK_EX | LOCK_NB) != 0;
}

class Diagnostics : public testing::Test {
protected:
    Diagnostics() { fs::create_directory(home + "/cache"); }

    const TempFolder folder;
    const std::string home = folder.Path();
    const fs::path marker = Probe::Marker(home);
};

}  // namespace

TEST_F(Diagnostics, AFaultEndsWithOneStatusAndWithoutTheMarker) {
    std::vector<std::string> faults = {"stack", "threads"};
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    faults.emplace_back("malloc");  // theirs isn't the system's
#endif
    for (const std::string& fault : faults) {
        Probe probe(home, fault);
        EXPECT_EQ(probe.Status(), kLFaultStatus) << fault;
        EXPECT_FALSE(fs::exists(marker)) << fault;
    }
    Probe ill(home, "ill");
    EXPECT_EQ(ill.Status(), -SIGILL);
    Probe told(home, "wait");
    told.Signal(SIGQUIT);
    told.Signal(SIGPIPE);
    told.Signal(SIGSEGV);  // the other two have not used up what SIGSEGV does
    EXPECT_EQ(told.Status(), kLFaultStatus);
}

TEST_F(Diagnostics, EndSignalsEndWithNothingLeft) {
    for (const int number : {SIGTERM, SIGINT})
        for (const char* state : {"wait", "work"}) {
            Probe probe(home, state);
            EXPECT_TRUE(IsHeld(marker));
            probe.Signal(number);
            probe.Signal(number);
            EXPECT_EQ(probe.Status(), 0) << state << number;
            EXPECT_FALSE(fs::exists(marker));
        }
    Probe returning(home, "return");
    EXPECT_EQ(returning.Status(), 0);
    EXPECT_FALSE(fs::exists(marker));
}

TEST_F(Diagnostics, WhatHangsAtTheEndDoesNotKeepTheProcess) {
    Probe probe(home, "hang");
    const auto start = std::chrono::steady_clock::now();
    probe.Signal(SIGTERM);
    EXPECT_EQ(probe.Status(), 0);
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    EXPECT_FALSE(fs::exists(marker));
}

TEST_F(Diagnostics, OneMarkerForAllInstances) {
    Probe first(home, "wait");
    ASSERT_EQ(fs::file_size(marker), 8u);
    uint32_t record[2];
    std::ifstream(marker, std::ios::binary).read(reinterpret_cast<char*>(record), sizeof record);
    // time() is up to a tick behind the clock that the record is of.
    const auto now = std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
    EXPECT_LE(static_cast<uint32_t>(now / 1'000) - record[0], 60u);
    EXPECT_LE(static_cast<uint32_t>(now) - record[1], 60'000u);
    {
        Probe second(home, "return");
        EXPECT_EQ(second.Status(), 0);
    }
    EXPECT_TRUE(IsHeld(marker));
    first.Signal(SIGKILL);
    EXPECT_EQ(first.Status(), -SIGKILL);
    EXPECT_TRUE(fs::exists(marker));  // what a run leaves that did not end cleanly
    fs::resize_file(marker, 100);
    Probe next(home, "wait");
    EXPECT_TRUE(IsHeld(marker));
    EXPECT_EQ(fs::file_size(marker), 8u);
    next.Signal(SIGTERM);
    EXPECT_EQ(next.Status(), 0);
    EXPECT_FALSE(fs::exists(marker));
}

TEST_F(Diagnostics, AnEndingInstanceLeavesTheNextOnesMarker) {
    Probe first(home, "stop");
    first.Signal(SIGTERM);
    ASSERT_TRUE(first.AwaitStop());
    EXPECT_FALSE(fs::exists(marker));
    const Probe next(home, "wait");
    EXPECT_TRUE(IsHeld(marker));
    first.Signal(SIGCONT);
    EXPECT_EQ(first.Status(), 0);
    EXPECT_TRUE(IsHeld(marker));
}

TEST_F(Diagnostics, WhatIsNoMarkerIsLeftAlone) {
    const fs::path other = home + "/other";
    std::ofstream(other) << "something of the user's";
    const auto tryIt = [&] {
        Probe probe(home, "return");
        EXPECT_EQ(probe.Status(), 0);
    };
    fs::create_symlink(other, marker);
    tryIt();
    EXPECT_TRUE(fs::is_symlink(marker));
    EXPECT_EQ(fs::file_size(other), 23u);
    fs::remove(marker);
    fs::create_directory(marker);
    tryIt();
    EXPECT_TRUE(fs::is_directory(marker));
    fs::remove(marker);
    ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
    tryIt();
    EXPECT_TRUE(fs::is_fifo(marker));
    fs::remove_all(home + "/cache");
    std::ofstream(home + "/cache") << "no folder";
    tryIt();
}
