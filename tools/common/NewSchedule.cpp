#include "NewSchedule.h"

#include "ScheduleText.h"
#include "app/LScheduleHelperKeys.h"

#include <algorithm>

namespace tools {

namespace {

// Where the words are a date or a time of day that can't be: the nearest that can, as the end of a sentence.
std::string Instead(const std::string& at, time_t now) {
    const std::string next = NearestPossible(at, now);
    return next.empty() ? "" : "; the next possible is " + next;
}

std::string NoTimeFault(const std::string& at, time_t now) {
    const std::string instead = Instead(at, now);
    return "no such time: " + at + (instead.empty() ? " (2026-11-30T21:05, 21:05, +90s, +15min, +2h, +3d)" : instead);
}

std::string TooLateFault(time_t start, time_t now) {
    const bool isOver = start <= now;
    // The same time of day, on the next day that has it more than the lead ahead; near ones as soon as can be.
    const std::string soonest = LocalTimeText(now + kLaunchLeadSeconds + 1);
    const auto again = ParseStartTime(LocalTimeText(start).substr(11), now + kLaunchLeadSeconds);
    return LocalTimeText(start) +
           (isOver ? " is over"
                   : " is too near: the application is started ten seconds earlier, so it would never be") +
           "; the next possible is " + (isOver && again ? LocalTimeText(*again) : soonest);
}

tm LocalFields(time_t moment) {
    tm fields{};
    localtime_r(&moment, &fields);
    return fields;
}

}  // namespace

NewSchedule WithLaunchOnItsClock(NewSchedule schedule) {
    const tm asked = LocalFields(schedule.start);
    for (int days = 1; (schedule.daily || schedule.weekly) && days < 7; days++) {
        if (LocalFields(schedule.start).tm_gmtoff == LocalFields(schedule.start - kLaunchLeadSeconds).tm_gmtoff) break;
        tm earlier = asked;
        earlier.tm_mday -= days;
        earlier.tm_isdst = -1;
        schedule.start = mktime(&earlier);
    }
    return schedule;
}

std::string ScheduleFault(const NewSchedule& schedule, time_t now) {
    if (std::string fault = NameFault(schedule.name); !fault.empty()) return fault;
    if (HasControls(schedule.name)) return "the name has control characters";
    if (schedule.weekly && !schedule.daily && schedule.weekdays == 0) return "it is weekly, but on no day";
    if (!schedule.daily && !schedule.weekly && schedule.start <= now + kLaunchLeadSeconds)
        return TooLateFault(schedule.start, now);
    return "";
}

std::optional<NewSchedule> ParseSchedule(const ScheduleWords& words, time_t now, std::string& fault) {
    const std::optional<time_t> start = ParseStartTime(words.at, now);
    const std::optional<uint8_t> weekdays = words.weekly ? ParseWeekdays(*words.weekly) : uint8_t{0};
    fault = NameFault(words.name);
    if (fault.empty() && !start) fault = NoTimeFault(words.at, now);
    if (fault.empty() && !weekdays) fault = "no such weekdays: \"" + *words.weekly + "\" (mon,tue,wed,thu,fri,sat,sun)";
    if (!fault.empty()) return {};
    const NewSchedule schedule{words.name, *start, words.daily, *weekdays != 0, *weekdays};
    fault = ScheduleFault(schedule, now);
    return fault.empty() ? std::optional(WithLaunchOnItsClock(schedule)) : std::nullopt;
}

}  // namespace tools
