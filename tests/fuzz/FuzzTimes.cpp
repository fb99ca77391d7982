// Times: what people write for a schedule's start, calendar arithmetic, and when a schedule's timers fire. The input is
// a few numbers and a text.
#include "Fuzz.h"

#include "common/ScheduleText.h"
#include "datetime/LDateTime.h"
#include "scheduler/LGCDTimerPlan.h"

#include <Foundation/Foundation.h>

#include <array>

namespace {

constexpr long kDay = 86400;
constexpr long kYear10000 = 253402300800;

// Zones in text form, so that no file is read: UTC, both hemispheres, an odd offset, changes at midnight.
constexpr std::array<const char*, 5> kZones = {
    "UTC0",         "CET-1CEST,M3.5.0,M10.5.0/3",     "NZST-12NZDT,M9.5.0,M4.1.0/3",
    "<+0545>-5:45", "<-03>3<-02>,M3.5.0/0,M10.5.0/0",
};

void SetZone(const char* zone) {
    static const char* set = nullptr;
    if (zone == set) return;
    setenv("TZ", zone, 1);
    tzset();
    set = zone;
}

// A start that was understood is shown as a time that means it again (or, in the hour that comes twice, its twin).
void CheckStartTime(const std::string& text, time_t now) {
    const auto start = tools::ParseStartTime(text, now);
    if (!start) return;
    if (text.front() == '+') Require(*start >= now && *start - now <= 100 * 366 * kDay, "a delay is within bounds");
    if (text.size() > 2 && text[2] == ':')
        Require(*start > now && *start - now < 3 * kDay, "a time of day is the next");
    if (*start < 2 * kDay || *start >= kYear10000 - 2 * kDay) return;
    const auto again = tools::ParseStartTime(tools::LocalTimeText(*start), now);
    Require(again && (*again == *start || *start - *again == 3600), "what is shown can be written");
}

void CheckWeekdays(const std::string& text) {
    const auto mask = tools::ParseWeekdays(text);
    if (!mask) return;
    Require(*mask > 0 && *mask < 128, "weekdays are a set of seven");
    Require(tools::ParseWeekdays(tools::WeekdayText(*mask)) == mask, "what is shown can be written");
}

void CheckCalendar(LDateTime date, int number) {
    const LDateTime moved = date.AdjustByMonths(number);
    std::tm before{}, after{};
    if (moved.Seconds() && LDateTime::GetLocalFields(date.Seconds(), before) &&
        LDateTime::GetLocalFields(moved.Seconds(), after)) {
        const long months = (long{after.tm_year} - before.tm_year) * 12 + after.tm_mon - before.tm_mon;
        // A time of day that a change of clocks leaves out may carry into the next day.
        Require(months == number || after.tm_mday == 1, "a date moves by months");
    }
    LDateTime day = date;
    const long count = day.SetDayTime(LDayTime(number));
    Require(count == -1 || count == day.Seconds(), "a new time of day is told");
    long t = 7;
    LDateTime::SetDateTime(t, number, number / 3, number, number, ~number / 2, number);
    Require(LDateTime::GetNumberOfDaysInMonth(number, 2) == (LDateTime::IsLeapYear(number) ? 29 : 28), "leap years");
}

void CheckPlan(LDateTime now, LDateTime start, bool daily, bool weekly, LWeekDay days) {
    const LGCDTimerPlan plan(now, start, daily, weekly, days);
    Require(plan.IsOneShot() == (!daily && !weekly && start > now), "a one-time start is one that comes");
    unsigned count = 0;
    for (const auto& [delaySeconds, intervalSeconds] : plan.Sources()) {
        count++;
        Require(delaySeconds > 0, "nothing fires at once");
        if (daily) Require(delaySeconds <= kDay && intervalSeconds == kDay, "daily is within a day, each day");
        if (!daily && weekly) Require(delaySeconds <= 7 * kDay && intervalSeconds == 7 * kDay, "weekly is each week");
        if (plan.IsOneShot()) Require(intervalSeconds == 0, "once is once");
    }
    const unsigned expected = daily    ? 1
                              : weekly ? static_cast<unsigned>(__builtin_popcount(days.Mask() & 0x7F))
                                       : start.Seconds() > now.Seconds();
    Require(count == expected, "one source for each day");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    SetZone(kZones[input.Byte() % kZones.size()]);
    const uint8_t kind = input.Byte(), days = input.Byte();
    const auto now = input.Number<int64_t>(), start = input.Number<int64_t>();
    const auto number = input.Number<int32_t>();
    const std::string text(input.Rest());
    CheckStartTime(text, static_cast<time_t>(static_cast<uint64_t>(now) % kYear10000));
    CheckWeekdays(text);
    Require(tools::NameFault(text).empty() == (!text.empty() && text.size() < 260 && NSString(text)), "names");
    CheckCalendar(LDateTime(start), number);
    CheckPlan(LDateTime(now), LDateTime(start), kind & 1, kind & 2, LWeekDay(days));
    return 0;
}
