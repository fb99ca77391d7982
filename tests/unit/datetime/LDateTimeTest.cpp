#include "datetime/LDateTime.h"

#include "VirtualClock.h"
#include "support/TimeZone.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

// Written as a rule, so that no zone files are needed.
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";

std::string Text(LDateTime t) {
    std::tm fields;
    if (!LDateTime::GetLocalFields(t.Seconds(), fields)) return "none";
    char text[64];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields)};
}

LDateTime At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    long t = 0;
    LDateTime::SetDateTime(t, year, month, day, hour, minute, second);
    return LDateTime(t);
}

LDayTime Clock(int hour, int minute, int second = 0) {
    return LDayTime(hour * 3600 + minute * 60 + second);
}

TEST(LDateTime, PointsAreBuiltFromLocalFields) {
    const TimeZone zone(kNewYork);
    const struct {
        int fields[6];
        const char* text;
    } cases[] = {
        {{15, 1, 1, 0, 0, 0}, "2015-01-01 00:00:00"},
        {{69, 12, 31, 0, 0, 0}, "2069-12-31 00:00:00"},
        {{70, 1, 1, 0, 0, 0}, "1970-01-01 00:00:00"},
        {{99, 6, 30, 23, 59, 59}, "1999-06-30 23:59:59"},
        {{1899, 1, 1, 0, 0, 0}, "3799-01-01 00:00:00"},  // 1,899 years after 1900
        {{1900, 1, 1, 0, 0, 0}, "1900-01-01 00:00:00"},
        {{2040, 2, 29, 12, 0, 0}, "2040-02-29 12:00:00"},  // past 32 bits
        {{2015, 6, 1, 25, 61, 0}, "2015-06-02 02:01:00"},
        {{2015, 13, 1, 0, 0, 0}, "2016-01-01 00:00:00"},
        {{2015, 0, 1, 0, 0, 0}, "2014-12-01 00:00:00"},
        {{2026, 3, 8, 2, 30, 0}, "2026-03-08 03:30:00"},  // the hour that the change leaves out
    };
    for (const auto& c : cases) {
        const int* f = c.fields;
        EXPECT_EQ(Text(At(f[0], f[1], f[2], f[3], f[4], f[5])), c.text);
    }
}

TEST(LDateTime, AFailedConversionLeavesTheValue) {
    const TimeZone zone("UTC0");
    const int cases[][6] = {{INT_MAX, INT_MAX, 1, 0, 0, 0}, {2015, INT_MIN, 1, 0, 0, 0}};
    for (const auto& f : cases) {
        long t = 42;
        EXPECT_EQ(LDateTime::SetDateTime(t, f[0], f[1], f[2], f[3], f[4], f[5]), -1) << f[0];
        EXPECT_EQ(t, 42);
    }
    long t = 42;
    EXPECT_EQ(LDateTime::SetDateTime(t, 1970, 1, 1, 0, 0, -1), -1);  // a count of its own, but the sign of failure
    EXPECT_EQ(t, 42);
    EXPECT_EQ(LDateTime::SetDateTime(t, 1970, 1, 1, 0, 0, -2), -2);
    EXPECT_EQ(t, -2);
}

TEST(LDateTime, MonthLengthsAndLeapYears) {
    const struct {
        int year, month, days;
    } cases[] = {{2000, 2, 29}, {1900, 2, 28}, {2015, 2, 28}, {2016, 2, 29}, {2015, 4, 30},
                 {2015, 7, 31}, {2015, 8, 31}, {2015, 0, 0},  {2015, 13, 0}, {2015, -1, 0}};
    for (const auto& c : cases) EXPECT_EQ(LDateTime::GetNumberOfDaysInMonth(c.year, c.month), c.days) << c.year;
}

TEST(LDateTime, TheTimeOfDayIsReplaced) {
    const TimeZone zone(kNewYork);
    LDateTime t = At(2015, 6, 1, 8, 30, 15);
    EXPECT_EQ(t.GetDayTime(), Clock(8, 30, 15));
    const long count = t.SetDayTime(LDayTime(90000));
    EXPECT_EQ(count, t.Seconds());
    EXPECT_EQ(Text(t), "2015-06-02 01:00:00");
    t.SetDayTime(LDayTime(-1));
    EXPECT_EQ(Text(t), "2015-06-01 23:59:59");
    t = At(2026, 3, 8, 1, 0, 0);
    t.SetDayTime(Clock(12, 0));  // across the change of that day
    EXPECT_EQ(Text(t), "2026-03-08 12:00:00");
    LDateTime huge(LONG_MAX);
    EXPECT_EQ(huge.SetDayTime(Clock(1, 0)), -1);
    EXPECT_EQ(huge.Seconds(), LONG_MAX);
    EXPECT_EQ(huge.GetDayTime(), LDayTime());
    EXPECT_EQ(huge.GetWeekDay(), LWeekDay());
}

TEST(LDateTime, AnUnsetValueGetsTodaysDate) {
    const TimeZone zone(kNewYork);
    const platform::VirtualClock clock(At(2020, 2, 28, 22, 0, 0).Seconds());
    LDateTime t;
    EXPECT_EQ(t.GetDayTime(), LDayTime());
    t.SetDayTime(Clock(24 + 7, 0));
    EXPECT_EQ(Text(t), "2020-02-29 07:00:00");
}

TEST(LDateTime, WeekdaysAreLocal) {
    const TimeZone zone(kNewYork);
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(At(2026, 3, 8 + i, 23, 59, 59).GetWeekDay().Mask(), 1 << i);  // the 8th is a Sunday
        EXPECT_EQ(At(2026, 3, 8 + i).GetWeekDay().Mask(), 1 << i);
    }
    EXPECT_EQ(LDateTime().GetWeekDay().Mask(), 0x08);  // 1969-12-31 19:00 here, a Wednesday
}

TEST(LDateTime, MonthsAreCarriedBothWays) {
    const TimeZone zone(kNewYork);
    const struct {
        LDateTime from;
        int months;
        const char* text;
    } cases[] = {
        {At(2015, 1, 31, 9, 8, 7), 1, "2015-02-28 09:08:07"}, {At(2016, 2, 29), 12, "2017-02-28 00:00:00"},
        {At(2015, 12, 15), 12, "2016-12-15 00:00:00"},        {At(2015, 1, 15), -1, "2014-12-15 00:00:00"},
        {At(2015, 1, 15), -13, "2013-12-15 00:00:00"},        {At(2015, 1, 15), -12, "2014-01-15 00:00:00"},
        {At(2015, 12, 31), 2, "2016-02-29 00:00:00"},         {At(2015, 3, 7, 2, 30), 0, "2015-03-07 02:30:00"},
        {At(2015, 1, 1), -115 * 12, "1900-01-01 00:00:00"},   {At(2015, 1, 1, 12), 300, "2040-01-01 12:00:00"},
    };
    for (const auto& c : cases) EXPECT_EQ(Text(c.from.AdjustByMonths(c.months)), c.text) << c.months;
    for (const int months : {-115 * 12 - 1, INT_MIN}) EXPECT_EQ(At(2015, 1, 1).AdjustByMonths(months), LDateTime());
    EXPECT_EQ(LDateTime(67768036191694799).AdjustByMonths(12), LDateTime());  // the last second of the last int year
    EXPECT_EQ(LDateTime(LONG_MAX).AdjustByMonths(0), LDateTime());
}

TEST(LDateTime, ARecurringPeriodHoldsAMoment) {
    const LDateTime now(1000);
    const LDateTime none;
    const LWeekDay monday(0x02);
    const struct {
        LDateTime start, end;
        LDayTime from, to, at;
        uint8_t days;
        bool inside;
    } cases[] = {
        {now, none, Clock(8, 0), Clock(9, 0), Clock(8, 0), 0x7F, true},
        {now, none, Clock(8, 0), Clock(9, 0), Clock(7, 59, 59), 0x7F, false},
        {now, none, Clock(8, 0), Clock(9, 0), Clock(8, 59, 59), 0x02, true},
        {now, none, Clock(8, 0), Clock(9, 0), Clock(9, 0), 0x7F, false},
        {now, none, Clock(8, 0), Clock(8, 0), Clock(8, 0), 0x7F, false},   // empty period
        {now, none, Clock(22, 0), Clock(2, 0), Clock(23, 0), 0x7F, true},  // over midnight
        {now, none, Clock(22, 0), Clock(2, 0), Clock(1, 59, 59), 0x7F, true},
        {now, none, Clock(22, 0), Clock(2, 0), Clock(2, 0), 0x7F, false},
        {now, none, Clock(22, 0), Clock(2, 0), Clock(21, 59, 59), 0x7F, false},
        {LDateTime(1001), none, Clock(8, 0), Clock(9, 0), Clock(8, 0), 0x7F, false},
        {now, LDateTime(1000), Clock(8, 0), Clock(9, 0), Clock(8, 0), 0x7F, false},
        {now, LDateTime(1001), Clock(8, 0), Clock(9, 0), Clock(8, 0), 0x7F, true},
        {now, LDateTime(-5), Clock(8, 0), Clock(9, 0), Clock(8, 0), 0x7F, true},  // no end
        {now, none, Clock(8, 0), Clock(9, 0), Clock(8, 0), 0x7D, false},          // another day
        {now, none, Clock(8, 0), Clock(9, 0), Clock(8, 0), 0x80, false},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        EXPECT_EQ(LDateTime::TestScheduleDetails(now, c.at, monday, c.start, c.end, c.from, c.to, LWeekDay(c.days)),
                  c.inside)
            << i;
    }
}

TEST(LDateTime, BuildDatesAreReadFromTheCompilersText) {
    const TimeZone zone(kNewYork);
    EXPECT_EQ(Text(LDateTime::GetDateFromBuildText("Jun  1 2015")), "2015-06-01 00:00:00");
    EXPECT_EQ(Text(LDateTime::GetDateFromBuildText("Dec 31 2026")), "2026-12-31 00:00:00");
    EXPECT_EQ(Text(LDateTime::GetDateFromBuildText("dec 31 2026")), "2025-12-31 00:00:00");  // no month: number 0
    for (const char* text : {"", "redacted", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(LDateTime::GetDateFromBuildText(text), LDateTime());
    }
    EXPECT_GT(LDateTime::GetBuildDate(), At(2020, 1, 1));
}

}  // namespace
