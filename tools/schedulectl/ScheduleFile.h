// Schedules in files: JSON as `list --json` prints it, and iCalendar. Reading gives what fits and says of the rest why
// it doesn't; nothing here talks to the helper. Main thread (the local time zone is the process's).
#pragma once

#include "common/HelperRequest.h"
#include "common/NewSchedule.h"
#include "common/ScheduleStore.h"

#include <ctime>
#include <string>
#include <vector>

namespace tools {

struct FileSchedule {
    std::string where;  // "line 12", "schedule 3"
    NewSchedule schedule;
    Application application;  // empty texts where the file doesn't say
};

struct ParsedFile {
    std::vector<FileSchedule> schedules;
    std::vector<std::string> faults;  // sentences, with their places
};

// {"schedules":[{"name":…,"start":…}]}: "start" in seconds since 1970 or as the command line takes it; "daily",
// "weekly" and "weekdays" ("mon,wed"), "application" and "bundleId" where they are given. The bare array will do, too.
ParsedFile ParseJsonSchedules(const std::string& text, time_t now);

// VEVENTs with DTSTART and, for a repeating one, an RRULE that is DAILY or WEEKLY, without end or gap. Repeats are in
// local time, as the helper's are. The application is in X-SCHEDULEHELPER-APPLICATION and X-SCHEDULEHELPER-BUNDLE-ID.
ParsedFile ParseCalendar(const std::string& text, time_t now);

// Schedules that a calendar can't express go to `left`.
std::string CalendarText(const std::vector<StoredSchedule>& schedules, time_t now, std::vector<StoredSchedule>& left);

}  // namespace tools
