#include "scheduler/LGCDTimerPlan.h"

#include <limits>

namespace {

constexpr long kDay = 86400;
constexpr long kWeek = 7 * kDay;

// Seconds from one local time of day to another, negative when it lies earlier in the day.
long TimeOfDayDifference(const std::tm& from, const std::tm& to) {
    return (to.tm_hour - from.tm_hour) * 3600L + (to.tm_min - from.tm_min) * 60L + (to.tm_sec - from.tm_sec);
}

// A start beyond all calendars is as far away as a count can say, instead of wrapping into the past.
long SaturatedDifference(long a, long b) {
    long result;
    if (!__builtin_sub_overflow(a, b, &result)) return result;
    return a < b ? std::numeric_limits<long>::min() : std::numeric_limits<long>::max();
}

}  // namespace

LGCDTimerPlan::LGCDTimerPlan(LDateTime now, LDateTime start, bool daily, bool weekly, LWeekDay weekDays) {
    if (!daily && !weekly) {
        const long delay = SaturatedDifference(start.Seconds(), now.Seconds());
        if (delay > 0) Add(delay, 0);
        return;
    }
    std::tm nowFields{}, startFields{};
    LDateTime::GetLocalFields(now.Seconds(), nowFields);
    LDateTime::GetLocalFields(start.Seconds(), startFields);  // a count without fields reads as midnight
    const long difference = TimeOfDayDifference(nowFields, startFields);
    if (daily) {
        Add(difference > 0 ? difference : difference + kDay, kDay);
        return;
    }
    for (int day = 0; day < 7; day++) {
        if (!(weekDays.Mask() & 1 << day)) continue;
        const long delay = (day - nowFields.tm_wday + 7) % 7 * kDay + difference;
        Add(delay > 0 ? delay : delay + kWeek, kWeek);
    }
}
