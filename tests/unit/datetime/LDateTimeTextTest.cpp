#include "datetime/LDateFormatOrder.h"
#include "datetime/LDateTime.h"

#include "support/TimeZone.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";

LDateTime At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    long t = 0;
    LDateTime::SetDateTime(t, year, month, day, hour, minute, second);
    return LDateTime(t);
}

std::string Composed(LDateTime t) {
    char text[32];
    t.GetDateTime(text);
    return text;
}

// What every getter prints, one after the other.
std::string AllForms(LDateTime t) {
    char a[32] = "?", b[32] = "?";
    std::string all;
    const auto add = [&all](const char* text) { all += text + std::string("|"); };
    LDateTime::GetDateTime(t.Seconds(), a, b);
    add(a), add(b);
    LDateTime::GetDateYYYYHMMHDDTimeHHCMM(t.Seconds(), a, b);
    add(a), add(b);
    LDateTime::GetTimeHHCMM(t.Seconds(), a), add(a);
    LDateTime::GetTimeHHHMMHSS(t.Seconds(), a), add(a);
    t.GetDateTimeInLocalFormat(a), add(a);
    t.GetDateYYYYHMMHDDTimeHHCMM(a), add(a);
    t.GetDateInLocalFormat(a), add(a);
    t.GetTimeInLocalFormat(a), add(a);
    t._GetTextTime(a), add(a);
    for (const int order : {0, 1, 2}) t._GetDateInOrder(a, order), add(a);
    return all;
}

}  // namespace

TEST(LDateTimeText, FormsOfAMoment) {
    const TimeZone zone(kNewYork);
    EXPECT_EQ(AllForms(At(2015, 6, 5, 3, 4, 59)),
              "2015-06-05|03:04:59|2015-06-05|03:04|03:04|03-04-59|2015-06-05 03:04:59|2015-06-05 03:04|2015-06-05|"
              "03:04:59|03:04:59|06/05/15|05/06/15|15/06/05|");
    for (const LDateTime none : {LDateTime(), LDateTime(LONG_MAX), At(10000, 1, 1)})
        EXPECT_EQ(AllForms(none), "||||||||||||||") << none.Seconds();
    EXPECT_EQ(Composed(At(9999, 12, 31, 23, 59, 59)), "9999-12-31 23:59:59");
    char text[32];
    At(2000, 1, 2).GetDateLocalFormat(text);  // no locale was set
    EXPECT_STREQ(text, "01/02/00");
    EXPECT_EQ(LDateTime::DateFormatOrder(), 0);
}

TEST(LDateTimeText, FixedFormsAreParsedAsFarAsTheyGo) {
    const TimeZone zone(kNewYork);
    const struct {
        const char *date, *time, *result;
    } rows[] = {
        {"2015-06-01", "13:45:10", "2015-06-01 13:45:10"},
        {" 2015- 6- 1", "1:2:3", "2015-06-01 01:02:03"},
        {"2015-06-01x", "7:5", "2015-06-01 07:05:00"},
        {"2015", "", "2015-01-01 00:00:00"},
        {"2015 -06-01", "x", "2015-01-01 00:00:00"},  // a blank ends the scan
        {"x", "1:1:1", "2000-01-01 01:01:01"},
        {"2015-06-31", "25:00:00", "2015-07-02 01:00:00"},
        {"2015--1-1", "", "2014-11-01 00:00:00"},
        {"2015-06-01", nullptr, "2015-06-01 00:00:00"},
        {"", "1:1:1", ""},
        {nullptr, nullptr, ""},
    };
    for (const auto& row : rows) {
        long t = 77;
        LDateTime::SetDateTime(t, row.date, row.time);
        EXPECT_EQ(Composed(LDateTime(t)), row.result) << (row.date ? row.date : "null");
    }
    for (const auto& [text, result] :
         {std::pair("2015-06-01 13:45:10", "2015-06-01 13:45:10"), std::pair("2015-06-01 13", "2015-06-01 13:00:00"),
          std::pair("2015-06-01", "2015-06-01 00:00:00"), std::pair("2015-6-1 3", "2015-06-01 00:00:00"),
          std::pair("", "")}) {
        long t = 77;
        LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(t, text);
        EXPECT_EQ(Composed(LDateTime(t)), result) << text;
    }
    long t = 77;
    LDateTime::SetDateTime(t, "99999999999999999999-1-1", "99999999999:1:1");  // no overflow, whatever it is
}

TEST(LDateTimeText, Validators) {
    const struct {
        const char* text;
        bool isDate, isMoment;
    } rows[] = {
        {"", true, false},
        {nullptr, true, false},
        {"1969-12-31 00:00:00", false, false},
        {"1970-01-01 00:00:00", true, true},
        {"2038-12-31 23:59:59", true, true},
        {"2039-01-01 00:00:00", false, false},
        {"2016-02-29 1:1:1", true, true},
        {"2015-02-29 1:1:1", false, false},
        {"2015-00-01 1:1:1", false, false},
        {"2015-13-01 1:1:1", false, false},
        {"2015-06-00 1:1:1", false, false},
        {"2015-06", false, false},
        {"2015-06-01", true, false},
        {"2015-06-01 24:00:00", true, false},
        {"2015-06-01 00:60:00", true, false},
        {"2015-06-01 00:00:60", true, false},
        {"2015-06-01 00:00:-1", true, false},
        {"2015-06-01 12:30", true, false},
        {"2015-06-0112:30:00", false, false},
        {"tomorrow", false, false},
    };
    for (const auto& row : rows) {
        const char* const name = row.text ? row.text : "null";
        EXPECT_EQ(LDateTime::ValidateDateYYYYHMMHDD(row.text), row.isDate) << name;
        EXPECT_EQ(LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(row.text), row.isMoment) << name;
    }
}

TEST(LDateTimeText, TypedDatesFollowTheOrder) {
    const TimeZone zone(kNewYork);
    const struct {
        int order;
        const char *text, *result;
    } rows[] = {
        {0, "6/5/15", "2015-06-05"},
        {1, "5.6.15", "2015-06-05"},
        {1, "5/6/2015 - 7/6/2015", "2015-06-05"},
        {1, "/6/2015", "2015-06-01"},
        {1, "on 5 . 6\\1970", "1970-06-05"},
        {1, "5:6:15:99", "2015-06-05"},
        {1, "1.1.69", "2069-01-01"},
        {1, "1.1.1899", "3799-01-01"},
        {2, "2015.06.05", "2015-06-05"},
        {2, "2015-06-05", "2014-12-01"},  // "-" ends it
        {0, "5", "2000-05-01"},
        {1, "5", "1999-12-05"},
        {2, "5", "2004-12-01"},
        {0, "-", "1999-12-01"},
        {0, "/", "1999-12-01"},
        {0, "", ""},
        {0, "now", ""},
        {0, nullptr, ""},
    };
    for (const auto& row : rows) {
        LDateTime t(77);
        t._SetTextDateInOrder(row.text, row.order);
        EXPECT_EQ(Composed(t), *row.result ? row.result + std::string(" 00:00:00") : "")
            << row.order << (row.text ? row.text : "null");
    }
    LDateTime t(77);
    t._SetTextDate("6/5/15");
    EXPECT_EQ(t, At(2015, 6, 5));
    t._SetTextDateInOrder("1/1/99999999999999999999999", 0);  // no overflow, whatever it is
}

TEST(LDateTimeText, TypedTimesReplaceTheTimeOfDay) {
    const TimeZone zone(kNewYork);
    for (const auto& [text, result] :
         {std::pair("7:5", "2015-06-05 07:05:00"), std::pair("1:2:3:4", "2015-06-05 01:02:03"),
          std::pair("1 2h:x3", "2015-06-05 12:03:00"), std::pair("", "2015-06-05 00:00:00"),
          std::pair("24", "2015-06-06 00:00:00"), std::pair(":::", "2015-06-05 00:00:00")}) {
        LDateTime t = At(2015, 6, 5, 22, 11, 33);
        t._SetTextTime(text);
        EXPECT_EQ(Composed(t), result) << text;
    }
    LDateTime none;
    none._SetTextTime("7:5");
    EXPECT_EQ(none, LDateTime());
    LDateTime winter = At(2026, 3, 8, 1);  // in the night before summer time
    winter._SetTextTime("12:00");
    EXPECT_EQ(Composed(winter), "2026-03-08 13:00:00");
}

TEST(LDateFormatOrder, IsToldByTheFormat) {
    for (const auto& [format, order] :
         {std::pair("%m/%d/%y", 0), std::pair("%D", 0), std::pair("%Y %D", 0), std::pair("%d/%m/%Y", 1),
          std::pair("%e.%m.%Y", 1), std::pair("%Y-%m-%d", 2), std::pair("%y%d%m", 2), std::pair("%B %d, %Y", 0),
          std::pair("%d %h %y", 1), std::pair("%m %Y %d", 0), std::pair("%F", 1), std::pair("%-d.%-m.%Y", 1),
          std::pair("", 1), std::pair("%", 1)})
        EXPECT_EQ(LGetDateFormatOrder(format), order) << format;
    EXPECT_EQ(LGetDateFormatOrder(nullptr), 1);
    EXPECT_EQ(LGetLocaleDateFormatOrder(), 0);
}
