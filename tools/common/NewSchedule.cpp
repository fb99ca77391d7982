#include "NewSchedule.h"

#include "ScheduleText.h"
#include "app/LScheduleHelperKeys.h"

#include <algorithm>

namespace tools {

std::optional<NewSchedule> ParseSchedule(const ScheduleWords& words, time_t now, std::string& fault) {
    fault = NameFault(words.name);
    if (!fault.empty()) return {};
    // XML has no place for them: other readers of the store would take the whole file for damaged.
    if (std::any_of(words.name.begin(), words.name.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; })) {
        fault = "the name has control characters";
        return {};
    }
    const std::optional<time_t> start = ParseStartTime(words.at, now);
    if (!start) {
        fault = "no such time: " + words.at + " (2026-11-30T21:05, 21:05, +90s, +15min, +2h)";
        return {};
    }
    const std::optional<uint8_t> weekdays = words.weekly ? ParseWeekdays(*words.weekly) : uint8_t{0};
    if (!weekdays) {
        fault = "no such weekdays: \"" + *words.weekly + "\" (mon,tue,wed,thu,fri,sat,sun)";
        return {};
    }
    const NewSchedule schedule{words.name, *start, words.daily, *weekdays != 0, *weekdays};
    if (!schedule.daily && !schedule.weekly && *start <= now + kLaunchLeadSeconds) {
        fault = LocalTimeText(*start) +
                " is too near: the application is started ten seconds earlier, so it would never be";
        return {};
    }
    return schedule;
}

}  // namespace tools
