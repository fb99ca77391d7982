#include "scheduler/LGCDTimerPlan.h"
#include "support/TimeZone.h"

#include <climits>
#include <gtest/gtest.h>
#include <vector>

namespace {

constexpr long kDay = 86400, kWeek = 604800;
constexpr long kWednesday = 1795564800;  // 2026-11-25 00:00:00 UTC
constexpr long kHour = 3600;
constexpr long kNow = kWednesday + 10 * kHour;
constexpr long kOldNine = 9 * kHour;  // 1970-01-01 09:00:00: the date doesn't count for repeating schedules

using Sources = std::vector<std::pair<long, long>>;

Sources Plan(long start, bool daily, bool weekly, uint8_t days, long now = kNow) {
    const LGCDTimerPlan plan(LDateTime(now), LDateTime(start), daily, weekly, LWeekDay(days));
    Sources sources;
    for (const auto& [delay, interval] : plan.Sources()) sources.emplace_back(delay, interval);
    EXPECT_EQ(plan.IsOneShot(), !sources.empty() && !daily && !weekly);
    return sources;
}

}  // namespace

TEST(LGCDTimerPlan, Table) {
    const TimeZone utc("UTC0");
    const struct {
        const char* what;
        long start;
        bool daily, weekly;
        uint8_t days;
        Sources expected;
    } rows[] = {
        {"daily, earlier today", kOldNine, true, false, 0, {{82800, kDay}}},
        {"daily, one second ago", kNow - 1, true, false, 0, {{kDay - 1, kDay}}},
        {"daily, now", kNow, true, false, 0, {{kDay, kDay}}},
        {"daily, in a second", kNow + 1, true, false, 0, {{1, kDay}}},
        {"daily wins over weekly", kOldNine, true, true, 0x7F, {{82800, kDay}}},
        {"weekly Monday and Friday", kOldNine, false, true, 0x22, {{428400, kWeek}, {169200, kWeek}}},
        {"weekly today, earlier", kOldNine, false, true, 0x08, {{601200, kWeek}}},
        {"weekly today, now", kNow, false, true, 0x08, {{kWeek, kWeek}}},
        {"weekly today, later", kNow + 60, false, true, 0x08, {{60, kWeek}}},
        {"weekly yesterday", kNow, false, true, 0x04, {{6 * kDay, kWeek}}},
        {"weekly, no day", kOldNine, false, true, 0x00, {}},
        {"weekly, bit 7 is no day", kOldNine, false, true, 0x80, {}},
        {"once, passed", kNow - 1, false, false, 0x7F, {}},
        {"once, now", kNow, false, false, 0x7F, {}},
        {"once, in a minute", kNow + 60, false, false, 0x7F, {{60, 0}}},
        {"once, no date", 0, false, false, 0, {}},
        {"once, end of all counts", LONG_MAX, false, false, 0, {{LONG_MAX - kNow, 0}}},
        {"once, begin of all counts", LONG_MIN, false, false, 0, {}},
        {"daily, beyond the calendar reads as midnight", LONG_MAX, true, false, 0, {{14 * kHour, kDay}}},
    };
    for (const auto& row : rows) EXPECT_EQ(Plan(row.start, row.daily, row.weekly, row.days), row.expected) << row.what;
    EXPECT_EQ(Plan(LONG_MAX, false, false, 0, -1), (Sources{{LONG_MAX, 0}}));  // not wrapped into the past
}

TEST(LGCDTimerPlan, EveryDayComesOnceWithinAWeek) {
    const TimeZone utc("UTC0");
    for (const long now : {kNow, kNow + kDay, kWednesday - 1}) {
        const Sources sources = Plan(kOldNine, false, true, 0xFF, now);
        ASSERT_EQ(sources.size(), 7u);
        for (size_t day = 0; day < 7; day++) {
            const auto [delay, interval] = sources[day];
            EXPECT_TRUE(delay > 0 && delay <= kWeek && interval == kWeek);
            EXPECT_EQ(LDateTime(now + delay).GetWeekDay().Mask(), 1 << day);
            EXPECT_EQ((now + delay) % kDay, kOldNine);
        }
    }
}
