// NewSchedule: a schedule as the main application thinks of it, and how people write one.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace tools {

struct NewSchedule {
    std::string name;
    time_t start = 0;  // when the schedule's work begins; the helper starts the application ten seconds earlier
    bool daily = false;
    bool weekly = false;
    uint8_t weekdays = 0;  // bit n = weekday n, 0 = Sunday
};

// The words of a command line.
struct ScheduleWords {
    std::string name;
    std::string at;
    bool daily = false;
    std::optional<std::string> weekly;  // the days; nothing: not weekly
};

// Why the helper can't keep the schedule or would never start it, as a sentence for people with the next moment that is
// possible; "" when it can: a name, a one-time start more than ten seconds ahead, a weekly one with a day.
std::string ScheduleFault(const NewSchedule& schedule, time_t now);

// The schedule as the helper keeps its time of day. That of a repeating one is its launch's, ten seconds before the
// start: where a change of clocks lies between the two, an earlier date is taken, whose day has none.
NewSchedule WithLaunchOnItsClock(NewSchedule schedule);

// What the words say, as above. Nothing, with `fault` as a sentence for people, when they name no schedule, or one that
// would never start.
std::optional<NewSchedule> ParseSchedule(const ScheduleWords& words, time_t now, std::string& fault);

}  // namespace tools
