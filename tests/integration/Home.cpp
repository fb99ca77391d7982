#include "Home.h"

#include "app/LScheduleHelperKeys.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

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

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

// The processes that have `variable` in their environment: those of one home, whoever started them.
std::vector<pid_t> ProcessesWith(const std::string& variable) {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && pid != getpid() &&
            ('\0' + ReadFile(entry.path() / "environ")).find('\0' + variable + '\0') != std::string::npos)
            found.push_back(pid);
    }
    return found;
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

void Program::Signal(int number) const {
    kill(pid, number);
}

int Program::AwaitEnd() {
    // No event of the standard tells a process's end with a deadline but SIGCHLD, which is the whole program's.
    const int64_t deadline = NowMs() + timeoutMs;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (NowMs() > deadline) return -1;
        poll(nullptr, 0, 2);
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

Home::Home() {
    const std::string runtime = folder.MakeFolder("runtime");
    chmod(runtime.c_str(), 0700);
    environment = {{"HOME", folder.Path()},
                   {"XDG_CONFIG_HOME", folder.MakeFolder("config")},
                   {"XDG_DATA_HOME", folder.MakeFolder("data")},
                   {"XDG_RUNTIME_DIR", runtime},
                   {"QUILLO_RECORD_SECONDS", "600"},
                   {"PATH", "/usr/bin:/bin"},
                   {"TZ", "UTC0"}};
    for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"})
        if (const char* value = getenv(name)) environment[name] = value;
}

Home::~Home() {
    const std::string mark = "XDG_RUNTIME_DIR=" + environment["XDG_RUNTIME_DIR"];
    for (auto left = ProcessesWith(mark); !left.empty(); left = ProcessesWith(mark)) {
        for (const pid_t pid : left) kill(pid, SIGKILL);
        sched_yield();
    }
}

std::string Home::HelperProgram() {
    return BUILD_FOLDER "/schedulehelper.app/Contents/Linux/schedulehelper";
}

std::string Home::QuilloBundle() {
    return BUILD_FOLDER "/Quillo.app";
}

std::string Home::QuilloProgram() {
    return QuilloBundle() + "/Contents/Linux/Quillo";
}

std::string Home::ControlProgram() {
    return BUILD_FOLDER "/schedulectl";
}

std::vector<tools::StoredSchedule> Home::Stored() const {
    const auto stored = tools::ReadStore(StorePath());
    EXPECT_TRUE(stored) << "the store can't be read";
    return stored.value_or(std::vector<tools::StoredSchedule>());
}

void Home::WriteStore(const std::vector<tools::StoredSchedule>& schedules) const {
    const auto text = [](const std::string& value) { return "<string>" + value + "</string>"; };
    const auto flag = [](bool value) { return value ? "<true/>" : "<false/>"; };
    std::string list;
    std::string entries;
    for (const tools::StoredSchedule& schedule : schedules) {
        const std::string key = "LGCDSCHEDULER_" + schedule.bundleId + schedule.appPath + schedule.name;
        list += text(key);
        entries += "<key>" + key + "</key><dict><key>APP_BUNDLEID</key>" + text(schedule.bundleId) +
                   "<key>APP_PATH</key>" + text(schedule.appPath) + "<key>SKED_NAME</key>" + text(schedule.name) +
                   "<key>START_TIME</key><integer>" + std::to_string(schedule.launch) +
                   "</integer><key>IS_DAILY</key>" + flag(schedule.daily) + "<key>IS_WEEKLY</key>" +
                   flag(schedule.weekly) + "<key>WEEKDAY_MASK</key><integer>" + std::to_string(schedule.weekdays) +
                   "</integer></dict>";
    }
    folder.Write(
        "config/com.tarnwick.schedulehelper.plist",
        R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>LGCDSCHEDULER_SKED_ALL</key><array>)" +
            list + "</array>" + entries + "</dict></plist>");
    chmod(StorePath().c_str(), 0600);
}

std::string Home::CopyQuillo(const std::string& folderName, const std::string& version) const {
    const std::string bundle = folder.MakeFolder(folderName) + "/Quillo.app";
    fs::copy(QuilloBundle(), bundle, fs::copy_options::recursive);
    std::string plist = ReadFile(bundle + "/Contents/Info.plist");
    const std::string key = "<key>CFBundleVersion</key>";
    const size_t begin = plist.find("<string>", plist.find(key)) + 8;
    plist.replace(begin, plist.find("</string>", begin) - begin, version);
    folder.Write(folderName + "/Quillo.app/Contents/Info.plist", plist);
    return bundle;
}

std::string Home::ServiceSocket() const {
    return environment.at("XDG_RUNTIME_DIR") + "/" + kHelperServiceName;
}

int Home::Control(const std::vector<std::string>& arguments, std::string* output) const {
    std::vector<std::string> words = {ControlProgram()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Program control(words, environment);
    const int status = control.AwaitEnd();
    if (output) *output = control.Output();
    return status;
}

bool Home::AwaitService() const {
    for (const int64_t deadline = NowMs() + timeoutMs; NowMs() < deadline;)
        if (Control({"test"}) == 0) return true;
    return false;
}

bool Home::AwaitHelper() const {
    for (const int64_t deadline = NowMs() + timeoutMs; NowMs() < deadline;)
        if (tools::IsHelperRunning(StorePath())) return true;
    return false;
}
