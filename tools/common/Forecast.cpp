#include "Forecast.h"

#include "app/LScheduleHelperKeys.h"
#include "scheduler/LGCDTimerPlan.h"

#include <algorithm>
#include <limits>

namespace tools {

namespace {

constexpr long kDay = 86'400;

LGCDTimerPlan PlanOf(const StoredSchedule& schedule, time_t planned) {
    return {LDateTime(planned), LDateTime(schedule.launch), schedule.daily, schedule.weekly,
            LWeekDay(schedule.weekdays)};
}

// The first moment after `now` at which the source is due; none: 0.
time_t NextDue(const LGCDTimerPlan::Source& source, time_t planned, time_t now) {
    const time_t first = planned + source.delaySeconds;
    if (first > now) return first;
    if (source.intervalSeconds == 0) return 0;
    return first + ((now - first) / source.intervalSeconds + 1) * source.intervalSeconds;
}

long SecondsOfDay(time_t moment) {
    tm fields{};
    if (!localtime_r(&moment, &fields)) return 0;
    return (fields.tm_hour * 60L + fields.tm_min) * 60 + fields.tm_sec;
}

}  // namespace

time_t Forecast::Start() const {
    return launch > std::numeric_limits<time_t>::max() - kLaunchLeadSeconds ? launch : launch + kLaunchLeadSeconds;
}

long ShiftSeconds(const StoredSchedule& schedule, time_t launch) {
    if (!schedule.daily && !schedule.weekly) return 0;
    long shift = SecondsOfDay(launch) - SecondsOfDay(schedule.launch);
    if (shift > kDay / 2) shift -= kDay;
    if (shift <= -kDay / 2) shift += kDay;
    return shift;
}

Forecast NextStart(const StoredSchedule& schedule, time_t planned, time_t now) {
    Forecast forecast;
    const LGCDTimerPlan plan = PlanOf(schedule, planned);
    for (const LGCDTimerPlan::Source& source : plan.Sources()) {
        const time_t due = NextDue(source, planned, now);
        if (due != 0 && (forecast.launch == 0 || due < forecast.launch)) forecast.launch = due;
    }
    if (forecast.launch != 0) {
        forecast.shiftSeconds = ShiftSeconds(schedule, forecast.launch);
    } else if (schedule.weekly) {
        forecast.none = NoStart::NoWeekday;
    } else {
        forecast.none = NoStart::Over;
        forecast.launch = schedule.launch;
    }
    return forecast;
}

std::vector<time_t> DueMoments(const StoredSchedule& schedule, time_t planned, time_t from, time_t to) {
    std::vector<time_t> moments;
    const LGCDTimerPlan plan = PlanOf(schedule, planned);
    for (const LGCDTimerPlan::Source& source : plan.Sources())
        for (time_t due = NextDue(source, planned, from); due != 0 && due <= to; due = NextDue(source, planned, due))
            moments.push_back(due);
    std::sort(moments.begin(), moments.end());
    return moments;
}

bool StartsAlmostADayLate(const StoredSchedule& schedule) {
    return schedule.weekly && !schedule.daily && SecondsOfDay(schedule.Start()) < kLaunchLeadSeconds;
}

}  // namespace tools
