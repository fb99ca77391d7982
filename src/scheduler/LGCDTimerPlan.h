// LGCDTimerPlan: when the timer sources of a schedule fire. Pure: the moment of planning is passed in. Any thread.
//
// First fires are computed from local wall-clock fields, repeats are whole days or weeks of 86,400 s. So a daily 09:00
// becomes 08:00 or 10:00 after a change of daylight-saving time, until the schedule is planned again.
#pragma once

#include "datetime/LDateTime.h"
#include "datetime/LWeekDay.h"

#include <array>
#include <span>

struct LGCDTimerPlan {
    struct Source {
        long delaySeconds;     // above 0
        long intervalSeconds;  // 0: fires once
    };

    // Daily wins over weekly; with neither flag the schedule is a one-time one. Of daily and weekly schedules only the
    // start's local time of day counts: a daily one whose time of day is now first fires tomorrow, a weekly one has a
    // source for each day of the set (bit 7 is no day), the earliest after now. A one-time start that is now or has
    // passed gives no source.
    LGCDTimerPlan(LDateTime now, LDateTime start, bool daily, bool weekly, LWeekDay weekDays);

    std::span<const Source> Sources() const { return {sources.data(), count}; }
    bool IsOneShot() const { return count == 1 && sources[0].intervalSeconds == 0; }

private:
    void Add(long delaySeconds, long intervalSeconds) { sources[count++] = {delaySeconds, intervalSeconds}; }

    std::array<Source, 7> sources;
    size_t count = 0;
};
