// Forecast: when the helper's timers will really start an application. They count elapsed time from the moment at which
// the helper planned the schedule (docs/timing.md), so a change of summer time moves what repeats. Pure functions; the
// local time zone is the process's (TZ). Any thread.
#pragma once

#include "ScheduleStore.h"

#include <ctime>
#include <vector>

namespace tools {

// Why no start comes any more.
enum class NoStart {
    None,       // one comes
    Over,       // a one-time schedule whose time is over
    NoWeekday,  // a weekly schedule without a day
};

struct Forecast {
    NoStart none = NoStart::None;
    time_t launch = 0;      // when the application is started next; without one, for `Over` when it was to be
    long shiftSeconds = 0;  // how much later by the local clock than the time of day that was asked for

    time_t Start() const;  // ten seconds later: when the schedule's work begins
};

// The next start after `now` of a schedule that the helper planned at `planned` (its own start, or the schedule's
// adding).
Forecast NextStart(const StoredSchedule& schedule, time_t planned, time_t now);

// All moments after `from`, up to and with `to`, at which a source of the schedule is due, in order. One moment twice
// where two sources are.
std::vector<time_t> DueMoments(const StoredSchedule& schedule, time_t planned, time_t from, time_t to);

// How much later by the local clock `launch` is than the time of day of the schedule's own launch; 0 for a one-time
// schedule. Half a day at most, either way.
long ShiftSeconds(const StoredSchedule& schedule, time_t launch);

// Before the first ten seconds of a day the helper's lead falls on the day before, but a weekly schedule stays on the
// days that it was given: it is started almost a day late.
bool StartsAlmostADayLate(const StoredSchedule& schedule);

}  // namespace tools
