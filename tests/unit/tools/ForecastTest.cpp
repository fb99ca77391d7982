#include "common/Forecast.h"
#include "common/ScheduleText.h"
#include "support/TimeZone.h"

#include <gtest/gtest.h>

namespace tools {
namespace {

// Clocks go forward on 29 March 2026 at 02:00 and back on 25 October 2026 at 03:00.
class ForecastTest : public ::testing::Test {
protected:
    // The names, and a schedule whose work begins at `start`.
    static StoredSchedule Schedule(const char* start, bool daily, bool weekly, uint8_t weekdays) {
        return {"id", "/A.app", "n", Moment(start) - 10, daily, weekly, weekdays};
    }
    static time_t Moment(const char* text) { return ParseStartTime(text, 0).value(); }

    TimeZone zone{"CET-1CEST,M3.5.0,M10.5.0/3"};
};

TEST_F(ForecastTest, TellsTheNextStartAndItsShift) {
    const struct {
        const char* what;
        StoredSchedule schedule;
        const char* planned;
        const char* now;
        const char* start;  // "": none
        long shift;
    } cases[] = {
        {"once", Schedule("2026-03-10T21:00", false, false, 0), "2026-03-01T12:00", "2026-03-02T12:00",
         "2026-03-10 21:00:00", 0},
        {"once, in the second of its launch", Schedule("2026-03-10T21:00", false, false, 0), "2026-03-01T12:00",
         "2026-03-10T20:59:50", "", 0},
        {"once, over before it was planned", Schedule("2026-03-10T21:00", false, false, 0), "2026-03-11T12:00",
         "2026-03-12T12:00", "", 0},
        {"daily, today", Schedule("2026-01-01T21:00", true, false, 0), "2026-03-10T12:00", "2026-03-10T12:00",
         "2026-03-10 21:00:00", 0},
        {"daily, tomorrow", Schedule("2026-01-01T21:00", true, false, 0), "2026-03-10T12:00", "2026-03-10T21:30",
         "2026-03-11 21:00:00", 0},
        {"daily, over the change that comes", Schedule("2026-01-01T21:00", true, false, 0), "2026-03-28T22:00",
         "2026-03-28T22:00", "2026-03-29 22:00:00", 3600},
        {"daily, planned before the change", Schedule("2026-01-01T21:00", true, false, 0), "2026-03-10T12:00",
         "2026-06-01T12:00", "2026-06-01 22:00:00", 3600},
        {"daily, planned in summer", Schedule("2026-07-01T21:00", true, false, 0), "2026-07-01T12:00",
         "2026-12-01T12:00", "2026-12-01 20:00:00", -3600},
        {"weekly, the nearer of two days", Schedule("2026-01-01T21:00", false, true, 0x22), "2026-03-10T12:00",
         "2026-03-11T12:00", "2026-03-13 21:00:00", 0},  // Monday and Friday; the 11th is a Wednesday
        {"weekly, just after midnight", Schedule("2026-01-01T00:00:05", false, true, 0x08), "2026-03-10T12:00",
         "2026-03-10T12:00", "2026-03-12 00:00:05", 0},
        {"weekly, no day", Schedule("2026-01-01T21:00", false, true, 0), "2026-03-10T12:00", "2026-03-10T12:00", "", 0},
    };
    for (const auto& c : cases) {
        const Forecast forecast = NextStart(c.schedule, Moment(c.planned), Moment(c.now));
        EXPECT_EQ(forecast.none == NoStart::None ? LocalTimeText(forecast.Start()) : "", c.start) << c.what;
        EXPECT_EQ(forecast.shiftSeconds, c.shift) << c.what;
    }
}

TEST_F(ForecastTest, ListsEveryDueMoment) {
    const StoredSchedule weekly = Schedule("2026-01-01T21:00", false, true, 0x22);
    const time_t planned = Moment("2026-03-10T12:00");
    const auto dues = DueMoments(weekly, planned, planned, Moment("2026-04-03T22:00"));
    std::string text;
    for (const time_t due : dues) text += LocalTimeText(due + 10).substr(5, 11) + ", ";
    EXPECT_EQ(text, "03-13 21:00, 03-16 21:00, 03-20 21:00, 03-23 21:00, 03-27 21:00, 03-30 22:00, 04-03 22:00, ");
    EXPECT_TRUE(DueMoments(weekly, planned, dues.back(), dues.back() + 3600).empty()) << "after, not at";
}

TEST_F(ForecastTest, KnowsTheDaysThatTheLeadMoves) {
    EXPECT_TRUE(StartsAlmostADayLate(Schedule("2026-01-01T00:00:09", false, true, 0x08)));
    EXPECT_FALSE(StartsAlmostADayLate(Schedule("2026-01-01T00:00:10", false, true, 0x08)));
    EXPECT_FALSE(StartsAlmostADayLate(Schedule("2026-01-01T00:00:05", true, false, 0)));
}

}  // namespace
}  // namespace tools
