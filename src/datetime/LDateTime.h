// LDateTime: a point in time as signed seconds since 1970-01-01 00:00:00 UTC, all 64 bits of them; 0 means that no date
// is set. Calendar fields are always local time of the machine; a conversion from fields leaves it to the library
// whether daylight-saving time applies. A value; any thread, as long as nobody changes the zone meanwhile.
#pragma once

#include "datetime/LDayTime.h"
#include "datetime/LWeekDay.h"

#include <compare>
#include <ctime>

class LDateTime {
public:
    constexpr LDateTime() = default;
    constexpr explicit LDateTime(long secondsSince1970) : seconds(secondsSince1970) {}

    constexpr long Seconds() const { return seconds; }

    friend constexpr auto operator<=>(LDateTime, LDateTime) = default;

    // English and fixed: for parsers and fixed forms, not for people.
    static const char* const szWeekDays[7];
    static const char* const szMonths[12];
    static const char* const szMonthsLong[12];

    // Breaks a count into local fields. A count whose year an int can't hold has none: false, and the fields are zero.
    static bool GetLocalFields(long t, std::tm& fields);

    // Builds a point from local fields: month 1 to 12, the others as they read; what is out of range is carried into
    // the next larger field (hour 25 is 01:00 of the next day). Years up to 69 count from 2000, 70 to 1899 from 1900.
    // Gives the count, -1 (and `t` as it was) when there is none; so the last second of 1969 in UTC can't be built.
    static long SetDateTime(long& t, int year, int month, int day, int hour, int minute, int second);

    static int GetNumberOfDaysInMonth(int year, int month);  // 0 for a month outside 1 to 12
    static bool IsLeapYear(int year);                        // Gregorian

    LDayTime GetDayTime() const;  // 0 for an unset value
    // Keeps the local date (an unset value gets today's), replaces the time of day; 86,400 and more carry into the
    // following days. Gives the new count, -1 (and the value as it was, or the current time if it was unset) when there
    // is none.
    long SetDayTime(LDayTime dayTime);

    // The set of the one local weekday; an unset value is treated as the moment 0. Empty when the count has no fields.
    LWeekDay GetWeekDay() const;

    // Moves by whole calendar months, back when negative. The day is cut to the target month's length (31 January + 1
    // is the last of February), the time of day stays. No date (0) when the result can't be converted or lies before
    // 1900.
    LDateTime AdjustByMonths(int months) const;

    // Whether a moment (`now`, with its time of day and its weekday) lies inside a daily period on chosen days between
    // two dates. `endDate` of 0 or less: no end; the end itself is outside. `startTime` after `endTime`: over midnight;
    // equal: never.
    static bool TestScheduleDetails(LDateTime now, LDayTime nowTime, LWeekDay nowDay, LDateTime startDate,
                                    LDateTime endDate, LDayTime startTime, LDayTime endTime, LWeekDay days);

    // Local midnight of the day on which the program was compiled; no date when that can't be told.
    static LDateTime GetBuildDate();
    // The same from a text of the form of __DATE__ ("Jun  1 2015"), which packagers may redefine for reproducible
    // builds.
    static LDateTime GetDateFromBuildText(const char* text);

private:
    long seconds = 0;
};
