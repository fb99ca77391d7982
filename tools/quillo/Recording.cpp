#include "Recording.h"

#include "ScheduleBook.h"
#include "common/Folders.h"
#include "common/ScheduleText.h"
#include "common/StopSignal.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace tools {

namespace {

namespace fs = std::filesystem;

constexpr double defaultSeconds = 3;
constexpr const char* helperProgram = "schedulehelper";

std::string NowText() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const auto ms = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
    std::array<char, 8> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(ms));
    return LocalTimeText(system_clock::to_time_t(now)) + fraction.data();
}

class Log {
public:
    Log() : file(DataFolder() + "/recordings.log", std::ios::app) {}
    void Write(const std::string& text) {
        const std::string line = NowText() + " Quillo[" + std::to_string(getpid()) + "] " + text;
        std::cout << line << std::endl;
        file << line << std::endl;
    }
    bool Good() const { return file.good(); }

private:
    std::ofstream file;
};

std::string ParentText() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/" + std::to_string(getppid()) + "/exe", error);
    if (error) return "process " + std::to_string(getppid());
    return program.string() + (program.filename() == helperProgram ? " (the helper)" : " (not the helper)");
}

double SecondsToRecord() {
    const char* text = getenv("QUILLO_RECORD_SECONDS");
    const double seconds = text ? std::strtod(text, nullptr) : defaultSeconds;
    return seconds >= 0 && seconds <= 86'400 ? seconds : defaultSeconds;
}

}  // namespace

std::string DataFolder() {
    std::string folder = UserFolder("XDG_DATA_HOME", ".local/share") + "/Quillo";
    std::error_code ignored;  // who writes there finds out
    fs::create_directories(folder, ignored);
    return folder;
}

std::string ScheduleBookPath() {
    return DataFolder() + "/schedules.json";
}

int Record() {
    const time_t now = time(nullptr);
    Log log;
    log.Write("started by " + ParentText());
    ScheduleBook book(ScheduleBookPath());
    LDescriptor turn = book.TakeTurn();
    const bool readable = book.Load();
    if (!readable) log.Write("can't read " + ScheduleBookPath());
    const std::vector<NewSchedule> due = DueSchedules(book.Schedules(), now);
    if (due.empty()) log.Write("nothing is due");
    for (const NewSchedule& schedule : due) {
        log.Write("recording \"" + schedule.name + "\", due " + LocalTimeText(NearestStart(schedule, now)));
        // A one-time schedule is done with.
        if (!schedule.daily && !schedule.weekly) book.Remove(schedule.name);
    }
    const bool saved = due.empty() || book.Save();
    turn.Reset();
    if (!saved) log.Write("can't write " + ScheduleBookPath());
    log.Write(AwaitStopSignal(SecondsToRecord()) ? "stopped by a signal" : "done");
    return log.Good() && readable && saved ? 0 : 1;
}

}  // namespace tools
