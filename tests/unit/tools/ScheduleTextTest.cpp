#include "common/ScheduleText.h"
#include "common/NewSchedule.h"
#include "support/TimeZone.h"

#include <gtest/gtest.h>

namespace tools {
namespace {

// Central European time, written out so that no zone files are needed: clocks go forward on 29 March 2026 at 02:00 and
// back on 25 October 2026 at 03:00.
class ScheduleTextTest : public ::testing::Test {
    TimeZone zone{"CET-1CEST,M3.5.0,M10.5.0/3"};
};

constexpr time_t sunday10 = 1'795'338'000;  // 2026-11-22 10:00:00 +01:00

struct Case {
    const char* text;
    time_t now;
    std::optional<time_t> expected;
};

TEST_F(ScheduleTextTest, ReadsEveryForm) {
    const Case cases[] = {
        // from now
        {"+90s", sunday10, sunday10 + 90},
        {"+15min", sunday10, sunday10 + 900},
        {"+2h", sunday10, sunday10 + 7200},
        {"+0s", sunday10, sunday10},
        // the next such time of day
        {"10:00", sunday10, sunday10 + 86'400},
        {"10:00:01", sunday10, sunday10 + 1},
        {"09:59:59", sunday10, sunday10 + 86'399},
        {"23:59", sunday10, sunday10 + 13 * 3600 + 59 * 60},
        {"00:00", sunday10, sunday10 + 14 * 3600},
        // date and time
        {"2026-11-22T10:00", 0, sunday10},
        {"2026-11-22 10:00:05", 0, sunday10 + 5},
        {"2026-11-22T09:00Z", 0, sunday10},
        {"2026-11-22T14:30:00+05:30", 0, sunday10},
        {"2026-11-22T04:00-05:00", 0, sunday10},
        {"2028-02-29T00:00Z", 0, 1'835'395'200},
        {"2100-01-01T00:00Z", 0, 4'102'444'800},
    };
    for (const Case& c : cases) EXPECT_EQ(ParseStartTime(c.text, c.now), c.expected) << c.text;
}

TEST_F(ScheduleTextTest, RefusesWhatIsNoTime) {
    for (const char* text : {"",
                             "+",
                             "+s",
                             "+5",
                             "+5m",
                             "+5 s",
                             "+-5s",
                             "++5s",
                             "+5s ",
                             "+99999999999999999999s",
                             "+999999999999h",
                             "24:00",
                             "9:00",
                             "10:60",
                             "10:00:60",
                             "10:00x",
                             "10:",
                             "2026-02-29T10:00",
                             "2026-02-30T10:00Z",
                             "2026-13-01T10:00",
                             "2026-00-01T10:00",
                             "2026-11-22",
                             "2026-11-22T",
                             "2026-11-22T10",
                             "2026-11-22x10:00",
                             "2026-11-22T10:00+1",
                             "2026-11-22T10:00+25:00",
                             "2026-11-22T10:00Zx",
                             "1969-12-31T23:59Z",
                             "tomorrow",
                             "12:34:5"})
        EXPECT_EQ(ParseStartTime(text, sunday10), std::nullopt) << text;
}

TEST_F(ScheduleTextTest, FollowsTheChangesOfClocks) {
    constexpr time_t springForward = 1'774'746'000;  // 2026-03-29 01:00 UTC, 02:00 becomes 03:00
    constexpr time_t fallBack = 1'792'890'000;       // 2026-10-25 01:00 UTC, 03:00 becomes 02:00
    const Case cases[] = {
        // left out on that day: none with the date; the next one is the day after
        {"2026-03-29T02:30", 0, std::nullopt},
        {"02:30", springForward - 600, springForward - 600 + 600 + 23 * 3600 + 1800},
        {"03:30", springForward - 600, springForward + 1800},
        // twice on that day: the first, and from between the two the second
        {"2026-10-25T02:30", 0, fallBack - 1800},
        {"02:30", fallBack - 3000, fallBack - 1800},
        {"02:30", fallBack - 600, fallBack + 1800},
        {"02:30", fallBack + 2400, fallBack + 1800 + 86'400},
    };
    for (const Case& c : cases) EXPECT_EQ(ParseStartTime(c.text, c.now), c.expected) << c.text << " at " << c.now;
}

TEST_F(ScheduleTextTest, KnowsWhatComesNextToWhatCannotBe) {
    const struct {
        const char* text;
        const char* nearest;
    } cases[] = {{"2026-03-29T02:30", "2026-03-29 03:00:00"},
                 {"2026-03-29T02:00", "2026-03-29 03:00:00"},
                 {"2027-02-29T10:00", "2027-03-01 10:00:00"},
                 {"2026-11-31T10:00", "2026-12-01 10:00:00"},
                 {"2026-13-01T10:00", ""},
                 {"later", ""}};
    for (const auto& c : cases) EXPECT_EQ(NearestPossible(c.text, sunday10), c.nearest) << c.text;

    std::string fault;
    EXPECT_FALSE(ParseSchedule({"n", "2026-11-21T10:00", false, {}}, sunday10, fault));
    EXPECT_EQ(fault, "2026-11-21 10:00:00 is over; the next possible is 2026-11-23 10:00:00");
    EXPECT_FALSE(ParseSchedule({"n", "2026-11-22T10:00:05", false, {}}, sunday10, fault));
    EXPECT_NE(fault.find("the next possible is 2026-11-22 10:00:11"), std::string::npos) << fault;
}

TEST(Durations, AreReadAndWritten) {
    const struct {
        const char* text;
        std::optional<time_t> seconds;
    } cases[] = {{"30d", 30 * 86'400}, {"2w", 14 * 86'400}, {"12h", 43'200}, {"90min", 5'400}, {"45s", 45},
                 {"30", {}},           {"d", {}},           {"-1d", {}},     {"1d2h", {}},     {"99999d", {}}};
    for (const auto& c : cases) EXPECT_EQ(ParseDuration(c.text), c.seconds) << c.text;
    const std::pair<time_t, const char*> texts[] = {
        {0, "0 s"},          {59, "59 s"},       {60, "1 min"}, {3'661, "1 h 1 min"}, {86'399, "23 h 59 min"},
        {90'000, "1 d 1 h"}, {-1'800, "-30 min"}};
    for (const auto& [seconds, text] : texts) EXPECT_EQ(DurationText(seconds), text);
}

TEST(Weekdays, ReadsAndWrites) {
    const struct {
        const char* text;
        std::optional<uint8_t> mask;
    } cases[] = {
        {"sun", 0x01},   {"mon,wed", 0x0A}, {"WED,Mon,mon", 0x0A}, {"mon,tue,wed,thu,fri,sat,sun", 0x7F},
        {"", {}},        {"mon,", {}},      {",mon", {}},          {"monday", {}},
        {"mon wed", {}}, {"mon,,wed", {}},
    };
    for (const auto& c : cases) EXPECT_EQ(ParseWeekdays(c.text), c.mask) << c.text;

    EXPECT_EQ(WeekdayText(0x00), "");
    EXPECT_EQ(WeekdayText(0x7F), "mon,tue,wed,thu,fri,sat,sun");
    for (unsigned mask = 1; mask < 0x80; ++mask)
        EXPECT_EQ(ParseWeekdays(WeekdayText(static_cast<uint8_t>(mask))), static_cast<uint8_t>(mask));
}

TEST(Names, AreUtf8OfOneTo259Bytes) {
    for (const std::string& name : {std::string("a"), std::string(259, 'x'), std::string("\xC3\xBC\xE2\x82\xAC")})
        EXPECT_EQ(NameFault(name), "") << name;
    for (const std::string& name : {std::string(), std::string(260, 'x'), std::string("a\xC3"), std::string("\xFF")})
        EXPECT_NE(NameFault(name), "") << name;
}

TEST(NewSchedules, AreReadFromWords) {
    constexpr time_t now = 1'795'338'000;
    const struct {
        const char* what;
        ScheduleWords words;
        bool fine;
    } cases[] = {
        {"once", {"n", "+11s", false, {}}, true},
        {"once, launched now", {"n", "+10s", false, {}}, false},
        {"once, past", {"n", "2001-01-01T00:00", false, {}}, false},
        {"daily, past", {"n", "2001-01-01T00:00", true, {}}, true},
        {"weekly", {"n", "+0s", false, "mon"}, true},
        {"no days", {"n", "+1h", false, ""}, false},
        {"a control character", {"n\x1b", "+1h", false, {}}, false},
        {"no weekday", {"n", "+1h", false, "moon"}, false},
        {"no time", {"n", "later", false, {}}, false},
        {"no name", {"", "+1h", false, {}}, false},
    };
    for (const auto& c : cases) {
        std::string fault;
        EXPECT_EQ(ParseSchedule(c.words, now, fault).has_value(), c.fine) << c.what;
        EXPECT_EQ(fault.empty(), c.fine) << c.what;
    }
    std::string fault;
    const auto schedule = ParseSchedule({"n", "+1h", false, "sun,mon"}, now, fault);
    ASSERT_TRUE(schedule);
    EXPECT_EQ(schedule->start, now + 3600);
    EXPECT_TRUE(schedule->weekly);
    EXPECT_FALSE(schedule->daily);
    EXPECT_EQ(schedule->weekdays, 0x03);
}

TEST(NewSchedules, RepeatAtTheTimeOfDayThatWasAskedFor) {
    const TimeZone zone("Europe/Berlin");
    const struct {
        ScheduleWords words;
        const char* start;
    } cases[] = {
        {{"n", "2027-03-28T03:00", true, {}}, "2027-03-27 03:00:00"},
        {{"n", "2027-03-28T03:00:09", false, "sun"}, "2027-03-27 03:00:09"},
        {{"n", "2027-10-31T02:00:05+01:00", true, {}}, "2027-10-30 02:00:05"},
        {{"n", "2027-03-28T03:00", false, {}}, "2027-03-28 03:00:00"},
        {{"n", "2027-03-28T03:00:10", true, {}}, "2027-03-28 03:00:10"},
    };
    for (const auto& c : cases) {
        std::string fault;
        const auto schedule = ParseSchedule(c.words, 1'795'338'000, fault);
        ASSERT_TRUE(schedule) << fault;
        EXPECT_EQ(LocalTimeText(schedule->start), c.start);
    }
}

}  // namespace
}  // namespace tools
