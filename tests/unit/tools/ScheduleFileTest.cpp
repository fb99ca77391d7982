#include "schedulectl/ScheduleFile.h"

#include "common/ScheduleText.h"
#include "schedulectl/CommandParts.h"
#include "support/TimeZone.h"

#include <gtest/gtest.h>

namespace tools {
namespace {

class ScheduleFileTest : public ::testing::Test {
protected:
    TimeZone zone{"Europe/Berlin"};
    const time_t now = 1'795'338'000;  // Sunday 2026-11-22 10:00
};

std::string Calendar(const std::string& lines) {
    return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nBEGIN:VEVENT\r\nSUMMARY:n\r\n" + lines +
           "END:VEVENT\r\nEND:VCALENDAR\r\n";
}

TEST_F(ScheduleFileTest, ReadsEventsThatTheHelperCanKeep) {
    const struct {
        const char* lines;
        const char* start;
        bool daily;
        const char* weekdays;
    } cases[] = {
        {"DTSTART:20261123T211500\r\n", "2026-11-23 21:15:00", false, ""},
        {"DTSTART:20261123T201500Z\r\n", "2026-11-23 21:15:00", false, ""},
        {"DTSTART;TZID=Europe/Berlin:20261123T211500\r\n", "2026-11-23 21:15:00", false, ""},
        {"DTSTART;TZID=America/New_York:20261123T151500\r\n", "2026-11-23 21:15:00", false, ""},
        {"DTSTART:20261122T211500\r\nRRULE:FREQ=DAILY\r\nDURATION:PT2H\r\n", "2026-11-22 21:15:00", true, ""},
        {"DTSTART:20200101T211500\r\nRRULE:FREQ=DAILY;INTERVAL=1\r\n", "2020-01-01 21:15:00", true, ""},
        {"DTSTART:20261123T211500\r\nRRULE:FREQ=WEEKLY\r\n", "2026-11-23 21:15:00", false, "mon"},
        {"DTSTART:20261123T211500\r\nRRULE:FREQ=WEEKLY;BYDAY=MO,SU;WKST=MO\r\n", "", false, ""},
        {"DTSTART:20261123T211500\r\nRRULE:FREQ=WEEKLY;BYDAY=MO,FR\r\n", "2026-11-23 21:15:00", false, "mon,fri"},
        {"DTSTART:20261123T211500\r\nRRULE:FREQ=DAILY;BYDAY=MO,FR\r\n", "2026-11-23 21:15:00", false, "mon,fri"},
    };
    for (const auto& c : cases) {
        const ParsedFile parsed = ParseCalendar(Calendar(c.lines), now);
        if (!*c.start) {  // the Sunday comes before it begins
            EXPECT_EQ(parsed.faults.size(), 1u) << c.lines;
            continue;
        }
        ASSERT_EQ(parsed.schedules.size(), 1u) << c.lines << (parsed.faults.empty() ? "" : parsed.faults[0]);
        const NewSchedule& schedule = parsed.schedules[0].schedule;
        EXPECT_EQ(LocalTimeText(schedule.start), c.start) << c.lines;
        EXPECT_EQ(schedule.daily, c.daily) << c.lines;
        EXPECT_EQ(schedule.weekly, *c.weekdays != 0) << c.lines;
        EXPECT_EQ(WeekdayText(schedule.weekdays), c.weekdays) << c.lines;
    }
}

TEST_F(ScheduleFileTest, RefusesWhatItCannotKeepWithItsLine) {
    const struct {
        const char* lines;
        const char* why;
    } cases[] = {
        {"", "no DTSTART"},
        {"DTSTART;VALUE=DATE:20261123\r\n", "a day, without a time"},
        {"DTSTART:20270328T023000\r\n", "there is no 2027-03-28T02:30:00 here"},
        {"DTSTART:20270230T211500Z\r\n", "there is no 2027-02-30T21:15:00 in its zone"},
        {"DTSTART;TZID=America/New_York:20270314T023000\r\n", "there is no 2027-03-14T02:30:00 in its zone"},
        {"DTSTART;TZID=Mars/Phobos:20261123T211500\r\n", "zone Mars/Phobos"},
        {"DTSTART:20261122T211500\r\nRRULE:FREQ=MONTHLY\r\n", "neither DAILY nor WEEKLY"},
        {"DTSTART:20261122T211500\r\nRRULE:FREQ=DAILY;INTERVAL=2\r\n", "INTERVAL"},
        {"DTSTART:20261122T211500\r\nRRULE:FREQ=DAILY;COUNT=3\r\n", "ends"},
        {"DTSTART:20261122T211500\r\nRRULE:FREQ=DAILY;UNTIL=20270101T000000Z\r\n", "ends"},
        {"DTSTART:20261122T211500\r\nRRULE:FREQ=DAILY;BYMONTH=1\r\n", "more than BYDAY"},
        {"DTSTART:20261122T211500\r\nRRULE:FREQ=DAILY\r\nEXDATE:20261124T211500\r\n", "exceptions"},
        {"DTSTART:20261122T211500\r\nRECURRENCE-ID:20261122T211500\r\n", "exceptions"},
        {"DTSTART:20261122T211500\r\nSTATUS:CANCELLED\r\n", "cancelled"},
        {"DTSTART:20261122T201500Z\r\nRRULE:FREQ=DAILY\r\n", "zone UTC"},
        {"DTSTART;TZID=America/New_York:20261122T151500\r\nRRULE:FREQ=DAILY\r\n", "zone America/New_York"},
        {"DTSTART:20261224T211500\r\nRRULE:FREQ=DAILY\r\n", "begins only at 2026-12-24"},
    };
    for (const auto& c : cases) {
        const ParsedFile parsed = ParseCalendar(Calendar(c.lines), now);
        ASSERT_EQ(parsed.faults.size(), 1u) << c.lines;
        EXPECT_TRUE(parsed.schedules.empty()) << c.lines;
        EXPECT_NE(parsed.faults[0].find(c.why), std::string::npos) << parsed.faults[0];
        EXPECT_TRUE(parsed.faults[0].starts_with("line 3 (n): ")) << parsed.faults[0];
    }
    const ParsedFile moved =
        ParseCalendar(Calendar("UID:a\r\nDTSTART:20261122T211500\r\nRRULE:FREQ=DAILY\r\nEND:VEVENT\r\n"
                               "BEGIN:VEVENT\r\nUID:a\r\nDTSTART:20261124T231500\r\n"
                               "RECURRENCE-ID:20261124T211500\r\n"),
                      now);
    EXPECT_TRUE(moved.schedules.empty());
    EXPECT_EQ(moved.faults.size(), 2u);
    for (const char* text : {"", "hello", "BEGIN:VCALENDAR\r\nBEGIN:VJOURNAL\r\nEND:VJOURNAL\r\nEND:VCALENDAR\r\n",
                             "BEGIN:VEVENT\r\nEND:VEVENT\r\n",
                             "BEGIN:VCALENDAR\r\nMETHOD:CANCEL\r\nBEGIN:VEVENT\r\nSUMMARY:n\r\n"
                             "DTSTART:20261123T211500\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n"})
        EXPECT_EQ(ParseCalendar(text, now).faults.size(), 1u) << text;
}

TEST_F(ScheduleFileTest, RepeatsInUtcWhereThatIsLocalTime) {
    for (const char* local : {"UTC", "Etc/UTC", ""}) {
        const TimeZone utc(local);
        for (const char* start : {"DTSTART:20261123T201500Z", "DTSTART;TZID=UTC:20261123T201500"}) {
            const ParsedFile parsed = ParseCalendar(Calendar(start + std::string("\r\nRRULE:FREQ=WEEKLY\r\n")), now);
            ASSERT_EQ(parsed.schedules.size(), 1u) << local << start;
            EXPECT_EQ(WeekdayText(parsed.schedules[0].schedule.weekdays), "mon");
        }
    }
}

TEST_F(ScheduleFileTest, NamesComeBackFromACalendar) {
    std::vector<StoredSchedule> stored, left;
    for (const char* name : {"plain", "comma, semicolon; back\\slash", "\"quotes\" 'n' `more`", "שלום עולם",
                             "😀👍🏽 日本語", " blanks %20 ", "   ", "BEGIN:VEVENT",
                             "naïve = 100 %: a long one that has to be folded over several lines "
                             "of the file because it has far more than 75 bytes ÄÖÜ ÄÖÜ ÄÖÜ"})
        stored.push_back({"com.tarnwick.quillofree", "/opt/a b;c,d/Quillo.app", name, now + 3590, false, false, 0});
    stored.push_back({"i", "/A.app", "daily", now - 7210, true, false, 0});
    stored.push_back({"i", "/A.app", "weekly", now - 7210, false, true, 0x41});
    stored.push_back({"i", "/A.app", "never", now, false, true, 0});
    const ParsedFile parsed = ParseCalendar(CalendarText(stored, now, left), now);
    EXPECT_EQ(left, std::vector<StoredSchedule>{stored.back()});
    ASSERT_EQ(parsed.schedules.size(), stored.size() - 1) << (parsed.faults.empty() ? "" : parsed.faults[0]);
    for (size_t i = 0; i < parsed.schedules.size(); i++) {
        StoredSchedule back = AsStored(parsed.schedules[i].application, parsed.schedules[i].schedule);
        if (back.daily || back.weekly) {  // of those the time of day counts
            EXPECT_EQ(LocalTimeText(back.launch).substr(11), LocalTimeText(stored[i].launch).substr(11));
            back.launch = stored[i].launch;
        }
        EXPECT_EQ(back, stored[i]) << stored[i].name;
    }
}

TEST_F(ScheduleFileTest, RepeatsComeBackFromACalendarAcrossSummerTime) {
    for (const time_t eve : {1'792'836'000, 1'774'692'000}) {  // Saturdays, 12:00: 2026-10-24 and 2026-03-28
        std::vector<StoredSchedule> stored, left;
        for (const char* time : {"00:20", "02:30", "05:00", "12:00", "23:50"}) {
            const time_t launch = *ParseStartTime(std::string("2026-01-07T") + time, 0) - 10;
            stored.push_back({"i", "/A.app", "daily", launch, true, false, 0});
            for (unsigned day = 0; day < 7; day++)
                stored.push_back({"i", "/A.app", "weekly", launch, false, true, static_cast<uint8_t>(1U << day)});
        }
        const ParsedFile parsed = ParseCalendar(CalendarText(stored, eve, left), eve);
        EXPECT_EQ(parsed.schedules.size(), stored.size()) << (parsed.faults.empty() ? "" : parsed.faults[0]);
    }
}

TEST_F(ScheduleFileTest, ReadsJson) {
    const ParsedFile parsed = ParseJsonSchedules(R"({"schema":1,"schedules":[
        {"name":"a","start":1795338100},
        {"name":"b","start":"21:05","weekly":true,"weekdays":"mon,wed","application":"/Q.app","bundleId":"x","more":[1]},
        {"name":"c","start":"2027-01-01T10:00","daily":true}]})",
                                                 now);
    ASSERT_EQ(parsed.schedules.size(), 3u);
    EXPECT_TRUE(parsed.faults.empty());
    EXPECT_EQ(parsed.schedules[0].schedule.start, 1'795'338'100);
    EXPECT_EQ(parsed.schedules[1].schedule.weekdays, 0x0A);
    EXPECT_EQ(parsed.schedules[1].application.path + parsed.schedules[1].application.bundleId, "/Q.appx");
    EXPECT_TRUE(parsed.schedules[2].schedule.daily);
    EXPECT_EQ(ParseJsonSchedules(R"([{"name":"a","start":1}])", now).schedules.size(), 1u);

    const std::string deep = "{\"schedules\":" + std::string(300'000, '[') + std::string(300'000, ']') + "}";
    const struct {
        const char* text;
        const char* why;
    } faults[] = {
        {"", "no JSON"},
        {"{\"schedules\":[", "no JSON"},
        {"{}", "no list"},
        {"{\"schedules\":7}", "no list"},
        {"[7]", "schedule 1: it is no object"},
        {"[{\"name\":\"a\"}]", "schedule 1: it has no \"start\""},
        {"[{\"name\":\"a\",\"start\":\"soon\"}]", "\"start\" is no time"},
        {"[{\"name\":\"a\",\"start\":18446744073709551615}]", "\"start\" is out of range"},
        {"[{\"name\":\"a\",\"start\":-9223372036854775808}]", "\"start\" is out of range"},
        {"[{\"name\":\"a\",\"start\":1,\"weekdays\":\"mon\"}]", "neither \"weekly\" nor"},
        {"{\"schema\":2,\"schedules\":[]}", "of schema 2, and only 1 is read"},
        {deep.c_str(), "schedule 1: it is no object"},
        {"[{\"name\":\"a\",\"start\":1.5}]", "\"start\" is of the wrong type"},
        {"[{\"name\":7,\"start\":1}]", "\"name\" is of the wrong type"},
        {"[{\"name\":\"a\",\"start\":1,\"weekdays\":\"moon\"}]", "no such weekdays"},
    };
    for (const auto& c : faults) {
        const ParsedFile refused = ParseJsonSchedules(c.text, now);
        EXPECT_TRUE(refused.schedules.empty()) << c.text;
        ASSERT_EQ(refused.faults.size(), 1u) << c.text;
        EXPECT_NE(refused.faults[0].find(c.why), std::string::npos) << refused.faults[0];
    }
}

}  // namespace
}  // namespace tools
