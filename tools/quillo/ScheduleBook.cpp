#include "ScheduleBook.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <unistd.h>

namespace tools {

namespace {

using nlohmann::json;

constexpr time_t earlySeconds = 15;  // the helper's ten, and a few for clocks that were set meanwhile
constexpr time_t lateSeconds = 60;

json ToJson(const NewSchedule& schedule) {
    return {{"name", schedule.name},
            {"start", schedule.start},
            {"daily", schedule.daily},
            {"weekly", schedule.weekly},
            {"weekdays", schedule.weekdays}};
}

NewSchedule FromJson(const json& entry) {
    return {entry.at("name").get<std::string>(), entry.at("start").get<time_t>(), entry.at("daily").get<bool>(),
            entry.at("weekly").get<bool>(), entry.at("weekdays").get<uint8_t>()};
}

bool WriteAll(int file, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = write(file, text.data() + done, text.size() - done);
        if (written < 0) return false;
        done += static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

ScheduleBook::ScheduleBook(std::string filePath) : path(std::move(filePath)) {}

LDescriptor ScheduleBook::TakeTurn() const {
    LDescriptor turn(open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (turn && flock(turn.Get(), LOCK_EX) != 0) turn.Reset();
    return turn;
}

bool ScheduleBook::Load() {
    schedules.clear();
    std::ifstream file(path);
    if (!file) return !std::filesystem::exists(path);
    try {
        const json book = json::parse(file);
        for (const json& entry : book.at("schedules")) schedules.push_back(FromJson(entry));
    } catch (const json::exception&) {
        schedules.clear();
        return false;
    }
    return true;
}

bool ScheduleBook::Save() const {
    json list = json::array();
    for (const NewSchedule& schedule : schedules) list.push_back(ToJson(schedule));
    std::string temporary = path + ".XXXXXX";
    const int file = mkostemp(temporary.data(), O_CLOEXEC);
    if (file < 0) return false;
    bool done = WriteAll(file, json{{"schedules", list}}.dump(2) + "\n") && fsync(file) == 0;
    done = close(file) == 0 && done;
    done = done && std::rename(temporary.c_str(), path.c_str()) == 0;
    if (!done) unlink(temporary.c_str());
    return done;
}

void ScheduleBook::Put(const NewSchedule& schedule) {
    Remove(schedule.name);
    schedules.push_back(schedule);
}

bool ScheduleBook::Remove(const std::string& name) {
    return std::erase_if(schedules, [&](const NewSchedule& schedule) { return schedule.name == name; }) != 0;
}

time_t NearestStart(const NewSchedule& schedule, time_t now) {
    if (!schedule.daily && !schedule.weekly) return schedule.start;
    tm wanted{};
    tm today{};
    if (!localtime_r(&schedule.start, &wanted) || !localtime_r(&now, &today)) return 0;
    time_t nearest = 0;
    for (int day = -7; day <= 7; ++day) {
        tm fields = today;
        fields.tm_mday += day;
        fields.tm_hour = wanted.tm_hour;
        fields.tm_min = wanted.tm_min;
        fields.tm_sec = wanted.tm_sec;
        fields.tm_isdst = -1;
        const time_t moment = mktime(&fields);
        // Daily counts first, as in the helper.
        if (!schedule.daily && (schedule.weekdays >> fields.tm_wday & 1) == 0) continue;
        if (nearest == 0 || std::abs(moment - now) < std::abs(nearest - now)) nearest = moment;
    }
    return nearest;
}

std::vector<NewSchedule> DueSchedules(const std::vector<NewSchedule>& schedules, time_t now) {
    std::vector<NewSchedule> due;
    for (const NewSchedule& schedule : schedules) {
        const time_t start = NearestStart(schedule, now);
        if (start >= now - lateSeconds && start <= now + earlySeconds) due.push_back(schedule);
    }
    return due;
}

}  // namespace tools
