#include "home/Home.h"

#include "app/LScheduleHelperKeys.h"
#include "home/WireClient.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sched.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The processes that have `variable` in their environment: those of one home, whoever started them.
std::vector<pid_t> ProcessesWith(const std::string& variable) {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && pid != getpid() &&
            ('\0' + BytesOf(entry.path() / "environ")).find('\0' + variable + '\0') != std::string::npos)
            found.push_back(pid);
    }
    return found;
}

}  // namespace

bool Await(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        sched_yield();
    }
    return true;
}

Home::Home() {
    const std::string runtime = folder.MakeFolder("runtime");
    chmod(runtime.c_str(), 0700);
    environment = {{"HOME", folder.Path()},
                   {"XDG_CONFIG_HOME", folder.MakeFolder("config")},
                   {"XDG_DATA_HOME", folder.MakeFolder("data")},
                   {"XDG_RUNTIME_DIR", runtime},
                   {"QUILLO_RECORD_SECONDS", "86400"},
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
    return BUILD_FOLDER "/Quillo.app/Contents/Linux/Quillo";
}

std::string Home::ControlProgram() {
    return BUILD_FOLDER "/schedulectl";
}

std::vector<tools::StoredSchedule> Home::Stored() const {
    auto stored = tools::ReadStore(StorePath());
    if (!stored) throw std::runtime_error(StorePath() + " can't be read");
    return std::move(*stored);
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
    std::string plist = BytesOf(bundle + "/Contents/Info.plist");
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

std::unique_ptr<Program> Home::StartQuillo() const {
    auto quillo = std::make_unique<Program>(std::vector{QuilloProgram()}, environment);
    if (!quillo->AwaitOutput("nothing is due")) throw std::runtime_error("Quillo doesn't run: " + quillo->Output());
    return quillo;
}

std::unique_ptr<Program> Home::StartHelper(const std::vector<std::string>& words) const {
    auto helper = std::make_unique<Program>(words, environment);
    if (AwaitService()) return helper;
    helper->Signal(SIGKILL);
    helper->AwaitEnd();
    throw std::runtime_error("the helper doesn't serve: " + helper->Output());
}

bool Home::AwaitService() const {
    return Await([this] { return WireClient(ServiceSocket()).Ask(tools::HelperRequest::Test()) == true; });
}

bool Home::AwaitHelper() const {
    return Await([this] { return tools::IsHelperRunning(StorePath()); });
}
