// LDateTime: a point in time as signed seconds since 1970-01-01 00:00:00 UTC, all 64 bits of them; 0 means that no date
// is set. Calendar fields are always local time of the machine; a conversion from fields leaves it to the library
// whether daylight-saving time applies. A value; any thread, as long as nobody changes the zone meanwhile.
#pragma once

#include "datetime/LDayTime.h"
#include "datetime/LWeekDay.h"

#include <compare>
#include <cstddef>
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

    // Text forms. All of local time; empty for 0 (no date), for a count without fields, and for years outside 0 to
    // 9999. Buffers are the caller's: a date has 10 characters, a time at most 8, the composed forms at most 19, and
    // each a terminator.
    static constexpr size_t kDateSize = 11, kTimeSize = 9;
    static void GetDateTime(long t, char* date, char* time);                 // 2015-06-05, 13:45:10
    static void GetDateYYYYHMMHDDTimeHHCMM(long t, char* date, char* time);  // 2015-06-05, 13:45
    static void GetTimeHHCMM(long t, char* out);                             // 13:45
    static void GetTimeHHHMMHSS(long t, char* out);                          // 13-45-10, for file names
    void GetDateTime(char* out) const;                                       // 2015-06-05 13:45:10
    void GetDateTimeInLocalFormat(char* out) const;                          // the same, in no locale's order
    void GetDateYYYYHMMHDDTimeHHCMM(char* out) const;                        // 2015-06-05 13:45
    void GetDateInLocalFormat(char* out) const;                              // 2015-06-05
    void GetTimeInLocalFormat(char* out) const;                              // 13:45:10
    void _GetTextTime(char* out) const;                                      // 13:45:10
    void GetDateLocalFormat(char* out) const;  // 06/05/15, in the order of the user's locale

    // Parses the fixed forms as scanf would; what isn't there is the first of January 2000, 00:00:00. An empty date
    // gives 0; a moment that can't be converted leaves `t`. The second takes both from one text, the time from position
    // 11 on.
    static void SetDateTime(long& t, const char* date, const char* time);
    static void SetDateYYYYHMMHDDTimeHHCMMCSS(long& t, const char* text);
    // Whether a text of the fixed form names a day from 1970 to 2038 (an empty one counts as valid), and whether one
    // with a time names a moment of such a day (an empty one doesn't). What follows is not looked at.
    static bool ValidateDateYYYYHMMHDD(const char* text);
    static bool ValidateDateTimeYYYYHMMHDDHHCMMCSS(const char* text);

    // Reads a date as people type it, in the order of the user's locale: fields separated by . / : or \, ended by "-".
    // Its time is midnight. No digit, separator or "-" at all: no date. A field left out: the first day; the month
    // before January; year 2000. What can't be converted leaves the value.
    void _SetTextDate(const char* text);
    // Replaces the time of day by up to three numbers separated by ":"; an unset value stays unset.
    void _SetTextTime(const char* text);
    // The two that follow the locale, for a given order.
    void _GetDateInOrder(char* out, int order) const;
    void _SetTextDateInOrder(const char* text, int order);

    // The locale's order as LGetLocaleDateFormatOrder gave it when first asked: it stays for the life of the process.
    static int DateFormatOrder();

    // Local midnight of the day on which the program was compiled; no date when that can't be told.
    static LDateTime GetBuildDate();
    // The same from a text of the form of __DATE__ ("Jun  1 2015"), which packagers may redefine for reproducible
    // builds.
    static LDateTime GetDateFromBuildText(const char* text);

private:
    long seconds = 0;
};
